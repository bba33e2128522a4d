#include "platform/api/Logger.hpp"

#include "platform/zmq/RotatingFile.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

namespace {

constexpr std::size_t kBufferBytes = std::size_t{64} * 1024;
/// A text beyond this many bytes is cut.
constexpr std::size_t kMaxTextBytes = 4096;
/// Each byte of a text may become four when it is escaped.
constexpr std::size_t kMaxLineBytes = 4 * kMaxTextBytes + 256;

struct LogState {
    int level = -1;
    bool toStandardError = false;
    bool toFile = false;
    std::string processName;
    RotatingFile file;
    /// The file has failed, and standard error has been told so.
    bool fileInTrouble = false;
    /// The second that `secondText` shows, so that it is formatted once a second.
    std::time_t second = -1;
    std::array<char, sizeof("2026-03-01T12:00:00")> secondText{};
};

// The buffer is plain memory beside the state: the last lines are written from a signal handler.
std::array<char, kBufferBytes> buffer;
volatile std::size_t buffered = 0;
volatile int fileDescriptorForSignal = -1;

LogState& logState() {
    // Never destroyed: destructors of other static objects may still log.
    static auto* const state = new LogState;
    return *state;
}

const char* levelName(int level) {
    // The names that the usage text gives.
    constexpr std::array<const char*, 8> kNames = {"0",   "1",   "ERR", "WRN",
                                                   "NTF", "INF", "DBG", "VERBOSE"};
    return kNames[static_cast<unsigned>(level) & Logger::kLevelMask];
}

/// Standard input, output and error must not be handed out as sockets, or log lines would go there.
void occupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            (void)::open("/dev/null", O_RDWR);
        }
    }
}

void writeToStandardError(std::string_view lines) {
    while (!lines.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, lines.data(), lines.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0 && errno == EAGAIN) {
            // Somebody else made the shared description non-blocking.
            pollfd item{STDERR_FILENO, POLLOUT, 0};
            (void)::poll(&item, 1, -1);
            continue;
        }
        if (written < 0) {
            return;
        }
        lines.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::size_t formatHead(LogState& state, int level, char* line, std::size_t size) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != state.second) {
        state.second = now.tv_sec;
        tm utc{};
        ::gmtime_r(&now.tv_sec, &utc);
        (void)std::strftime(state.secondText.data(), state.secondText.size(), "%Y-%m-%dT%H:%M:%S",
                            &utc);
    }
    constexpr long kNanosecondsInMillisecond = 1'000'000;
    const int length = std::snprintf(line, size, "%s.%03ldZ %s %s: ", state.secondText.data(),
                                     now.tv_nsec / kNanosecondsInMillisecond, levelName(level),
                                     state.processName.c_str());
    return length > 0 ? std::min(static_cast<std::size_t>(length), size - 1) : 0;
}

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    constexpr unsigned char kFirstPrintable = 0x20;
    constexpr unsigned char kDelete = 0x7f;
    return byte < kFirstPrintable || byte == kDelete;
}

/// Appends `text` to `line` with every control character escaped; returns the bytes appended.
std::size_t escapeInto(char* line, std::string_view text) {
    constexpr const char* kHex = "0123456789abcdef";
    char* end = line;
    for (const char c : text) {
        if (!isControl(c)) {
            *end++ = c;
            continue;
        }
        *end++ = '\\';
        switch (c) {
        case '\n':
            *end++ = 'n';
            break;
        case '\r':
            *end++ = 'r';
            break;
        case '\t':
            *end++ = 't';
            break;
        default:
            *end++ = 'x';
            *end++ = kHex[static_cast<unsigned char>(c) >> 4U];
            *end++ = kHex[static_cast<unsigned char>(c) & 0xfU];
        }
    }
    return static_cast<std::size_t>(end - line);
}

void appendLine(int level, const char* format, va_list arguments) {
    if (kBufferBytes - buffered < kMaxLineBytes) {
        Logger::flush();
    }
    char* const line = buffer.data() + buffered;
    std::size_t length = formatHead(logState(), level, line, kMaxLineBytes);
    char* const text = line + length;
    const int wanted = std::vsnprintf(text, kMaxTextBytes, format, arguments);
    const std::size_t textLength =
        wanted < 0 ? 0 : std::min(static_cast<std::size_t>(wanted), kMaxTextBytes - 1);
    if (std::find_if(text, text + textLength, isControl) == text + textLength) {
        length += textLength;
    } else {
        std::array<char, kMaxTextBytes> plain;
        std::memcpy(plain.data(), text, textLength);
        length += escapeInto(text, {plain.data(), textLength});
    }
    line[length++] = '\n';
    buffered = buffered + length;
}

/// One line that the level does not hold back.
void logAlways(const char* format, ...) __attribute__((format(printf, 1, 2)));
void logAlways(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    appendLine(Logger::LOG_LEVEL_ERR, format, arguments);
    va_end(arguments);
}

/// Called with the lines that the file has just refused or, after a refusal, taken again.
void noteFileOutcome(LogState& state, int error) {
    if (error != 0 && !state.fileInTrouble) {
        state.fileInTrouble = true;
        logAlways("log file %s: %s; its lines are lost until it can be written again",
                  state.file.fileName().c_str(), std::strerror(error));
    } else if (error == 0 && state.fileInTrouble) {
        state.fileInTrouble = false;
        logAlways("log file %s can be written again", state.file.fileName().c_str());
    }
}

} // namespace

int Logger::createLogger(unsigned int flags, std::string fileName, std::string processName) {
    std::signal(SIGPIPE, SIG_IGN);
    occupyStandardDescriptors();
    LogState& state = logState();
    state.level = static_cast<int>(flags & kLevelMask);
    state.toStandardError = (flags & kToStandardError) != 0;
    state.toFile = (flags & kToFile) != 0;
    state.processName = std::move(processName);
    std::atexit([] { Logger::flush(); });
    if (!state.toFile) {
        return 0;
    }
    const int error = state.file.open(std::move(fileName));
    fileDescriptorForSignal = state.file.fileDescriptor();
    if (error != 0) {
        state.toFile = false;
        logAlways("log file %s cannot be opened: %s; going on without it",
                  state.file.fileName().c_str(), std::strerror(error));
        flush();
        return -1;
    }
    return 0;
}

void Logger::log(logDebugLevel_t level, const char* format, ...) {
    if (static_cast<int>(level) > logState().level) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    appendLine(level, format, arguments);
    va_end(arguments);
    if (level <= LOG_LEVEL_ERR) {
        flush();
    }
}

void Logger::flush() {
    if (buffered == 0) {
        return;
    }
    LogState& state = logState();
    int error = 0;
    if (state.toFile) {
        error = state.file.append({buffer.data(), buffered});
        fileDescriptorForSignal = state.file.fileDescriptor();
    }
    if (state.toStandardError) {
        writeToStandardError({buffer.data(), buffered});
    }
    buffered = 0;
    if (state.toFile) {
        noteFileOutcome(state, error);
        if (buffered != 0) {
            // What there is to say about the file goes to standard error, and to the file if it
            // takes lines again.
            if (error == 0) {
                (void)state.file.append({buffer.data(), buffered});
            }
            writeToStandardError({buffer.data(), buffered});
            buffered = 0;
        }
    }
}

void Logger::writeRemainderFromSignal() {
    const std::size_t size = buffered;
    const auto writeWithoutWaiting = [size](int descriptor) {
        // A pipe that is ready takes this many bytes without waiting.
        constexpr std::size_t kAtOnce = 4096;
        for (std::size_t done = 0; done < size;) {
            pollfd item{descriptor, POLLOUT, 0};
            if (::poll(&item, 1, 0) != 1 || (item.revents & POLLOUT) == 0) {
                return;
            }
            const ssize_t written =
                ::write(descriptor, buffer.data() + done, std::min(kAtOnce, size - done));
            if (written <= 0) {
                return;
            }
            done += static_cast<std::size_t>(written);
        }
    };
    if (fileDescriptorForSignal >= 0) {
        writeWithoutWaiting(fileDescriptorForSignal);
    }
    writeWithoutWaiting(STDERR_FILENO);
    buffered = 0;
}

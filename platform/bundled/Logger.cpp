#include "platform/api/Logger.hpp"

#include "platform/bundled/RotatingFile.hpp"

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
/// A process name beyond this many bytes is cut.
constexpr std::size_t kMaxNameBytes = 128;

struct LogState {
    int level = -1;
    bool toStandardError = false;
    bool toFile = false;
    RotatingFile file;
    /// The file has failed, and standard error has been told so.
    bool fileInTrouble = false;
    /// What stands between the time and the text, for each level: " INF kaikla: ".
    std::array<std::string, Logger::kLevelMask + 1> levelHeads;
    /// The moment that `timeText` shows: most lines under load repeat the one before.
    std::time_t second = -1;
    long millisecond = -1;
    std::array<char, sizeof("2026-03-01T12:00:00.000Z")> timeText{};
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

void makeLevelHeads(LogState& state, const std::string& processName) {
    // The names that the usage text gives; nothing is logged at levels 0 and 1.
    constexpr std::array<const char*, Logger::kLevelMask + 1> kNames = {
        "0", "1", "ERR", "WRN", "NTF", "INF", "DBG", "VERBOSE"};
    std::transform(kNames.begin(), kNames.end(), state.levelHeads.begin(),
                   [&processName](const char* name) {
                       return std::string(" ") + name + " " + processName + ": ";
                   });
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

/// Brings `timeText` up to now.
void updateTime(LogState& state) {
    constexpr long kNanosecondsInMillisecond = 1'000'000;
    constexpr unsigned kMillisecondsInSecond = 1000;
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const long millisecond = now.tv_nsec / kNanosecondsInMillisecond;
    if (now.tv_sec == state.second && millisecond == state.millisecond) {
        return;
    }
    char* const text = state.timeText.data();
    constexpr std::size_t kSecondLength = sizeof("2026-03-01T12:00:00") - 1;
    if (now.tv_sec != state.second) {
        tm utc{};
        ::gmtime_r(&now.tv_sec, &utc);
        (void)std::strftime(text, state.timeText.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    }
    (void)std::snprintf(text + kSecondLength, state.timeText.size() - kSecondLength, ".%03uZ",
                        static_cast<unsigned>(millisecond) % kMillisecondsInSecond);
    state.second = now.tv_sec;
    state.millisecond = millisecond;
}

/// Writes time, level and process name; returns the bytes written.
std::size_t formatHead(LogState& state, int level, char* line) {
    updateTime(state);
    const std::size_t timeLength = state.timeText.size() - 1;
    const std::string& levelHead = state.levelHeads[static_cast<unsigned>(level)];
    std::copy_n(state.timeText.data(), timeLength, line);
    std::copy_n(levelHead.data(), levelHead.size(), line + timeLength);
    return timeLength + levelHead.size();
}

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    constexpr unsigned char kFirstPrintable = 0x20;
    constexpr unsigned char kDelete = 0x7f;
    return byte < kFirstPrintable || byte == kDelete;
}

/// In UTF-8 the control characters from U+0080 to U+009F, "next line" among them, begin with this.
constexpr char kC1Lead = '\xc2';

bool isC1Control(char lead, char next) {
    constexpr unsigned char kFirst = 0x80;
    constexpr unsigned char kLast = 0x9f;
    const auto byte = static_cast<unsigned char>(next);
    return lead == kC1Lead && byte >= kFirst && byte <= kLast;
}

/// Whether one of `length` characters may have to be escaped. They are looked at in blocks, which
/// compiles to a fraction of what a look at each would; the block behind the text must be writable.
bool mayHoldControl(char* text, std::size_t length) {
    constexpr std::size_t kBlock = 16;
    std::memset(text + length, ' ', kBlock);
    unsigned char found = 0;
    for (std::size_t at = 0; at < length; at += kBlock) {
        for (std::size_t i = 0; i < kBlock; ++i) {
            const char c = text[at + i];
            found |= static_cast<unsigned char>(isControl(c));
            found |= static_cast<unsigned char>(c == kC1Lead);
        }
    }
    return found != 0;
}

/// Appends `text` to `line` with every control character escaped; returns the bytes appended.
std::size_t escapeInto(char* line, std::string_view text) {
    constexpr const char* kHex = "0123456789abcdef";
    char* end = line;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool partOfC1 = (i + 1 < text.size() && isC1Control(c, text[i + 1])) ||
                              (i > 0 && isC1Control(text[i - 1], c));
        if (!isControl(c) && !partOfC1) {
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
    std::size_t length = formatHead(logState(), level, line);
    char* const text = line + length;
    const int wanted = std::vsnprintf(text, kMaxTextBytes, format, arguments);
    const std::size_t textLength =
        wanted < 0 ? 0 : std::min(static_cast<std::size_t>(wanted), kMaxTextBytes - 1);
    if (!mayHoldControl(text, textLength)) {
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
    std::signal(SIGXFSZ, SIG_IGN);
    occupyStandardDescriptors();
    LogState& state = logState();
    state.level = static_cast<int>(flags & kLevelMask);
    state.toStandardError = (flags & kToStandardError) != 0;
    state.toFile = (flags & kToFile) != 0;
    processName.resize(std::min(processName.size(), kMaxNameBytes));
    makeLevelHeads(state, processName);
    state.fileInTrouble = false;
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

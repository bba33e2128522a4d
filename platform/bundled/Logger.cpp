#include "platform/api/Logger.hpp"

#include "platform/bundled/RotatingFile.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
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

/// With this much gathered the lines are written.
constexpr std::size_t kGatheredBytes = std::size_t{64} * 1024;
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
    std::string processName;
    /// The second that `secondText` shows; most lines share it with the one before.
    std::time_t second = -1;
    std::array<char, sizeof("2026-03-01T12:00:00")> secondText{};
    /// Has room for what it may hold, so that logging takes no memory.
    std::string gathered;
};

/// Set from a signal handler.
std::atomic<bool> atOnce{false};
static_assert(std::atomic<bool>::is_always_lock_free);

LogState& logState() {
    // Never destroyed: destructors of other static objects may still log.
    static auto* const state = new LogState;
    return *state;
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

/// Appends time, level and process name.
void appendHead(LogState& state, int level) {
    // The names that the usage text gives; nothing is logged at levels 0 and 1.
    constexpr std::array<const char*, Logger::kLevelMask + 1> kNames = {
        "0", "1", "ERR", "WRN", "NTF", "INF", "DBG", "VERBOSE"};
    constexpr long kNanosecondsInMillisecond = 1'000'000;
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != state.second) {
        state.second = now.tv_sec;
        tm utc{};
        ::gmtime_r(&now.tv_sec, &utc);
        (void)std::strftime(state.secondText.data(), state.secondText.size(), "%Y-%m-%dT%H:%M:%S",
                            &utc);
    }
    std::array<char, 2 * kMaxNameBytes> head;
    const int length =
        std::snprintf(head.data(), head.size(), "%s.%03ldZ %s %s: ", state.secondText.data(),
                      now.tv_nsec / kNanosecondsInMillisecond, kNames[static_cast<unsigned>(level)],
                      state.processName.c_str());
    state.gathered.append(head.data(), static_cast<std::size_t>(length));
}

struct Character {
    char32_t code;
    std::size_t bytes;
};

/// The character that `text` begins with; of no bytes when that is not UTF-8.
Character firstOf(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x80) {
        return {byte(0), 1};
    }
    const std::size_t bytes = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
    if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < bytes) {
        return {0, 0};
    }
    char32_t code = byte(0) & (0x7fU >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return {0, 0};
        }
        code = code << 6U | (byte(i) & 0x3fU);
    }
    const bool tooLong = (bytes == 3 && code < 0x800) || (bytes == 4 && code < 0x10000);
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    return tooLong || surrogate || code > 0x10ffff ? Character{0, 0} : Character{code, bytes};
}

/// Whether a character can break a line, move the cursor or turn the order in which it is shown.
bool isHarmful(char32_t code) {
    const auto isWithin = [code](char32_t first, char32_t last) {
        return code >= first && code <= last;
    };
    return isWithin(0x00, 0x1f) || isWithin(0x7f, 0x9f) || code == 0x61c ||
           isWithin(0x200e, 0x200f) || isWithin(0x2028, 0x202e) || isWithin(0x2066, 0x2069);
}

void appendEscaped(std::string& line, char c) {
    constexpr const char* kHex = "0123456789abcdef";
    constexpr std::string_view kNamed = "\n\r\t";
    line += '\\';
    if (const std::size_t at = kNamed.find(c); at != std::string_view::npos) {
        line += "nrt"[at];
    } else {
        line += 'x';
        line += kHex[static_cast<unsigned char>(c) >> 4U];
        line += kHex[static_cast<unsigned char>(c) & 0xfU];
    }
}

/// Appends `text` with everything escaped that is no UTF-8 or harmful.
void appendText(std::string& line, std::string_view text) {
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~'; };
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(
            std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
        line += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) {
            return;
        }
        const Character first = firstOf(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(first.bytes, 1));
        if (first.bytes > 0 && !isHarmful(first.code)) {
            line += bytes;
        } else {
            for (const char c : bytes) {
                appendEscaped(line, c);
            }
        }
        text.remove_prefix(bytes.size());
    }
}

void appendLine(int level, const char* format, va_list arguments) {
    std::array<char, kMaxTextBytes> text;
    const int wanted = std::vsnprintf(text.data(), text.size(), format, arguments);
    const std::size_t length =
        wanted < 0 ? 0 : std::min(static_cast<std::size_t>(wanted), text.size() - 1);
    LogState& state = logState();
    appendHead(state, level);
    appendText(state.gathered, {text.data(), length});
    state.gathered += '\n';
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
    state.processName = std::move(processName);
    state.gathered.reserve(kGatheredBytes + kMaxLineBytes);
    state.fileInTrouble = false;
    std::atexit([] { Logger::flush(); });
    if (!state.toFile) {
        return 0;
    }
    const int error = state.file.open(std::move(fileName));
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
    if (level <= LOG_LEVEL_ERR || atOnce || logState().gathered.size() >= kGatheredBytes) {
        flush();
    }
}

void Logger::flush() {
    LogState& state = logState();
    if (state.gathered.empty()) {
        return;
    }
    const int error = state.toFile ? state.file.append(state.gathered) : 0;
    if (state.toStandardError) {
        writeToStandardError(state.gathered);
    }
    state.gathered.clear();
    if (!state.toFile) {
        return;
    }
    // What there is to say about the file goes to standard error, and to the file if it takes lines
    // again.
    noteFileOutcome(state, error);
    if (error == 0) {
        (void)state.file.append(state.gathered);
    }
    writeToStandardError(state.gathered);
    state.gathered.clear();
}

void Logger::writeAtOnce() noexcept {
    atOnce = true;
}

#include "platform/api/Logger.hpp"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

/// A text beyond this is cut.
constexpr std::size_t kMaxTextBytes = 4096;

unsigned highestLevel = 0;

bool isControl(char c) {
    return std::iscntrl(static_cast<unsigned char>(c)) != 0;
}

/// syslog counts errors as 3 and so on, one more than the service; what is beyond "debug" is
/// "debug".
int syslogPriority(Logger::logDebugLevel_t level) {
    return std::min(static_cast<int>(level) + 1, LOG_DEBUG);
}

void writeEntry(Logger::logDebugLevel_t level, const char* format, va_list arguments) {
    std::array<char, kMaxTextBytes> text{};
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);
    // Texts hold what strangers sent: a line break in one must not look like the next entry.
    std::replace_if(text.begin(), text.begin() + std::strlen(text.data()), isControl, '?');
    ::syslog(syslogPriority(level), "%s", text.data());
}

} // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface passes texts by value.
int Logger::createLogger(unsigned int flags, std::string fileName, std::string processName) {
    // The system's log refers to the name for as long as it is open.
    static std::string name;
    name = std::move(processName);
    highestLevel = flags & kLevelMask;
    ::openlog(name.c_str(), (flags & kToStandardError) != 0 ? LOG_PERROR : 0, LOG_DAEMON);
    (void)std::signal(SIGPIPE, SIG_IGN);
    if ((flags & kToFile) != 0) {
        std::fprintf(stderr, "%s: no log file %s: this platform has the system's log only\n",
                     name.c_str(), fileName.c_str());
        return -1;
    }
    return 0;
}

void Logger::log(logDebugLevel_t level, const char* format, ...) {
    if (static_cast<unsigned>(level) > highestLevel) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    writeEntry(level, format, arguments);
    va_end(arguments);
}

// Nothing is kept back, so nothing is left to write.
void Logger::flush() {}
void Logger::writeAtOnce() noexcept {}

#pragma once

#include <string>

/// The process's log.
///
/// One line an entry: time (ISO 8601, UTC, milliseconds), level, process name and text, as in
/// "2026-03-01T12:00:00.123Z INF kaikla: text". Texts hold what strangers sent: bytes that are not
/// UTF-8 and characters that break a line or turn its order are escaped. Lines are gathered in
/// memory: flush() makes them visible, and so does an error or a full buffer. Writing waits for a
/// reader of standard error, or of a FIFO, that does not read. One thread uses it.
class Logger {
public:
    /// Lower is more urgent; the numbers are those of the command line's -l.
    enum logDebugLevel_t {
        LOG_LEVEL_ERR = 2,
        LOG_LEVEL_WRN = 3,
        LOG_LEVEL_NTF = 4,
        LOG_LEVEL_INF = 5,
        LOG_LEVEL_DBG = 6,
        LOG_LEVEL_VERBOSE = 7,
    };

    /// Bits 0 to 2: the highest level that is written.
    static constexpr unsigned kLevelMask = 0x7;
    /// Bit 5: lines go to the named file.
    static constexpr unsigned kToFile = 0x20;
    /// Bit 8: lines go to standard error.
    static constexpr unsigned kToStandardError = 0x100;

    Logger() = delete;

    /// Sets the log up from a word of the bits above, the file's name and the process's name.
    /// The file is appended to, created if missing, and rotated: three old ones are kept, FILE.1
    /// being the youngest. Returns 0, or -1 when the file cannot be opened; one line on standard
    /// error then says so, and the log goes on without it. From here on SIGPIPE and SIGXFSZ
    /// are ignored: a reader of the log that goes away, or a limit of the size of files, does not
    /// end the process.
    static int createLogger(unsigned int flags, std::string fileName, std::string processName);

    /// Writes one line; `format` and the arguments are printf's. Without createLogger, or at a
    /// level above the one chosen, it does nothing.
    static void log(logDebugLevel_t level, const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    /// Makes every line visible. Called when the process is about to wait.
    static void flush();

    /// From now on each line is visible at once, because the process may end at any moment.
    /// Async-signal-safe.
    static void writeAtOnce() noexcept;
};

#pragma once

#include "platform/api/Logger.hpp"

/// Logs a step that failed, and hands the step's result through:
///
///     return CHK(lastStep());
///
///     if (const int code = CHK(step()); code < 0) {
///         return code;
///     }
///
/// The line names the enclosing function's full signature and the source line. Every caller on the
/// way up does the same, so that one failure reads as a chain of lines, innermost first.
#define CHK(code) checkResult((code), static_cast<const char*>(__PRETTY_FUNCTION__), __LINE__)

inline int checkResult(int code, const char* signature, int line) {
    if (code < 0) {
        Logger::log(Logger::LOG_LEVEL_ERR, "CHK(%s)::%d Error Code %d", signature, line, code);
    }
    return code;
}

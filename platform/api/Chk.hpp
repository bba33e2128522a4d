#pragma once

#include "platform/api/Logger.hpp"

/// Logs a failed step where it was detected and hands its code back, for the caller to return:
///
///     if (const int code = step(); code < 0) {
///         return CHK(code);
///     }
///
/// The compiler supplies the enclosing function's full signature and the line. Every caller on the
/// way up does the same, so that one failure reads as a chain of lines, innermost first.
#define CHK(code) chkFailed((code), static_cast<const char*>(__PRETTY_FUNCTION__), __LINE__)

inline int chkFailed(int code, const char* signature, int line) {
    Logger::log(Logger::LOG_LEVEL_ERR, "CHK(%s)::%d Error Code %d", signature, line, code);
    return code;
}

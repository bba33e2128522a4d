#pragma once

#include "tests/support/TemporaryDirectory.hpp"

#include <string>
#include <vector>

/// The lines of a log as "LEVEL text", with "#" for the source line in a "CHK(...)::12 Error Code"
/// text. A line that does not look like one of kaikla's comes out as it stands.
std::vector<std::string> logLines(const std::string& log);

/// Only the error lines of `log`, without their level.
std::vector<std::string> errorLines(const std::string& log);

/// What this process logs while the object lives, at every level.
class CapturedLog {
public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    CapturedLog(CapturedLog&&) = delete;
    CapturedLog& operator=(CapturedLog&&) = delete;

    /// As logLines, since the last call.
    std::vector<std::string> lines();

private:
    TemporaryDirectory directory;
    std::string path = directory.file("log");
};

/// The text of a file, empty when there is none.
std::string fileText(const std::string& path);

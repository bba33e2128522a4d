#pragma once

#include <string>
#include <string_view>

namespace sim {

/// The file that a recording goes to. Each line is in the file when write() returns.
class RecordingFile {
public:
    /// Creates or empties `fileName`; "-" is standard output. Throws std::system_error.
    explicit RecordingFile(const std::string& fileName);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;
    RecordingFile(RecordingFile&&) = delete;
    RecordingFile& operator=(RecordingFile&&) = delete;

    /// Writes `line` and a line break. While a pipe's reader does not read, it waits for it or for
    /// `stopDescriptor` to become readable, and gives up in that case. Throws std::system_error
    /// when the line cannot be written.
    void writeLine(const std::string& line, int stopDescriptor);

private:
    std::string name;
    int descriptor = -1;
};

} // namespace sim

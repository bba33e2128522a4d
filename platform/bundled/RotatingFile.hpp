#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// A log file that is appended to and bounded in size: FILE is renamed to FILE.1, FILE.1 to FILE.2
/// and so on before it grows beyond the limit, and what was FILE.3 goes. Where FILE is a symbolic
/// link to a file, it is the link's target that is bounded and renamed, and the link stays. What is
/// no regular file (a device, a FIFO) is written to without a bound and never renamed. Not copied,
/// one thread.
class RotatingFile {
public:
    static constexpr std::size_t kMaxBytes = std::size_t{4} * 1024 * 1024;
    static constexpr int kOldFiles = 3;

    RotatingFile() = default;
    ~RotatingFile();
    RotatingFile(const RotatingFile&) = delete;
    RotatingFile& operator=(const RotatingFile&) = delete;

    /// Opens the file for appending, creating it if missing. Returns 0 or an errno value; ENXIO for
    /// a FIFO that nobody reads.
    int open(std::string fileName);

    /// Appends whole lines, waiting for a FIFO that is full. Returns 0 or an errno value; lines
    /// that could not be written are lost, and the file is opened again at a later call.
    int append(std::string_view lines);

    const std::string& fileName() const { return name; }

private:
    int reopen();
    int rotate();
    void close();

    std::string name;
    /// Where the file is, once it has been opened: `name` without symbolic links.
    std::string path;
    int descriptor = -1;
    std::size_t bytes = 0;
    /// It is a regular file.
    bool bounded = false;
};

#include "platform/zmq/RotatingFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

RotatingFile::~RotatingFile() {
    close();
}

int RotatingFile::open(std::string fileName) {
    name = std::move(fileName);
    return reopen();
}

int RotatingFile::reopen() {
    close();
    constexpr mode_t kReadableByAll = 0644;
    descriptor =
        ::open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, kReadableByAll);
    if (descriptor < 0) {
        return errno;
    }
    struct stat status {};
    bytes = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)
                ? static_cast<std::size_t>(status.st_size)
                : 0;
    return 0;
}

int RotatingFile::rotate() {
    close();
    for (int age = kOldFiles; age > 0; --age) {
        const std::string younger = age > 1 ? name + "." + std::to_string(age - 1) : name;
        const std::string older = name + "." + std::to_string(age);
        if (::rename(younger.c_str(), older.c_str()) != 0 && errno != ENOENT) {
            // Without room for an old file the lines go on where they are.
            return reopen();
        }
    }
    torn = false;
    return reopen();
}

void RotatingFile::close() {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
    bytes = 0;
}

int RotatingFile::append(std::string_view lines) {
    if (descriptor < 0) {
        if (const int error = reopen(); error != 0) {
            return error;
        }
    }
    if (bytes > 0 && bytes + lines.size() > kMaxBytes) {
        if (const int error = rotate(); error != 0) {
            return error;
        }
    }
    if (torn && ::write(descriptor, "\n", 1) == 1) {
        torn = false;
        ++bytes;
    }
    while (!lines.empty()) {
        const ssize_t written = ::write(descriptor, lines.data(), lines.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        const auto count = static_cast<std::size_t>(written);
        torn = count > 0 && lines[count - 1] != '\n';
        bytes += count;
        lines.remove_prefix(count);
    }
    return 0;
}

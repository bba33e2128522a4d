#include "platform/bundled/RotatingFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

RotatingFile::~RotatingFile() {
    close();
}

int RotatingFile::open(std::string fileName) {
    name = std::move(fileName);
    path = name;
    return reopen();
}

int RotatingFile::reopen() {
    close();
    constexpr mode_t kReadableByAll = 0644;
    // A FIFO that nobody reads must not hold up the start; only writing waits for a reader.
    descriptor =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
               kReadableByAll);
    if (descriptor < 0) {
        return errno;
    }
    (void)::fcntl(descriptor, F_SETFL, O_APPEND);
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        std::error_code unresolved;
        const auto resolved = std::filesystem::canonical(path, unresolved);
        if (!unresolved) {
            path = resolved;
            bytes = static_cast<std::size_t>(status.st_size);
            bounded = true;
        }
    }
    return 0;
}

int RotatingFile::rotate() {
    close();
    // Something else may have been put there meanwhile.
    std::error_code unknown;
    if (std::filesystem::symlink_status(path, unknown).type() !=
        std::filesystem::file_type::regular) {
        return reopen();
    }
    for (int age = kOldFiles; age > 0; --age) {
        const std::string younger = age > 1 ? path + "." + std::to_string(age - 1) : path;
        const std::string older = path + "." + std::to_string(age);
        if (::rename(younger.c_str(), older.c_str()) != 0 && errno != ENOENT) {
            // Without room for an old file the lines go on where they are.
            return reopen();
        }
    }
    return reopen();
}

void RotatingFile::close() {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
    bytes = 0;
    bounded = false;
}

int RotatingFile::append(std::string_view lines) {
    if (descriptor < 0) {
        if (const int error = reopen(); error != 0) {
            return error;
        }
    }
    if (bounded && bytes > 0 && bytes + lines.size() > kMaxBytes) {
        if (const int error = rotate(); error != 0) {
            return error;
        }
    }
    while (!lines.empty()) {
        const ssize_t written = ::write(descriptor, lines.data(), lines.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        if (written > 0) {
            bytes += static_cast<std::size_t>(written);
            lines.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    return 0;
}

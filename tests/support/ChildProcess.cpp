#include "tests/support/ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
    std::array<int, 2> ends{-1, -1};
    Pipe() {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe2");
        }
    }
};

} // namespace

int countOf(const std::string& text, const std::string& needle) {
    int count = 0;
    if (needle.empty()) {
        return count;
    }
    for (auto at = text.find(needle); at != std::string::npos;
         at = text.find(needle, at + needle.size())) {
        ++count;
    }
    return count;
}

std::string builtProgram(const std::string& name) {
    return std::string(KAIKLA_BIN_DIR) + "/" + name;
}

ChildProcess::ChildProcess(std::vector<std::string> arguments) {
    if (arguments.at(0).find('/') == std::string::npos) {
        arguments[0] = builtProgram(arguments[0]);
    }
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);

    const Pipe out;
    const Pipe err;
    process = ::fork();
    if (process < 0) {
        throw std::runtime_error("fork");
    }
    if (process == 0) {
        ::dup2(out.ends[1], STDOUT_FILENO);
        ::dup2(err.ends[1], STDERR_FILENO);
        ::execv(words[0], words.data());
        constexpr int kNotFound = 127;
        ::_exit(kNotFound);
    }
    ::close(out.ends[1]);
    ::close(err.ends[1]);
    standardOutput.descriptor = out.ends[0];
    standardError.descriptor = err.ends[0];
    reader = std::thread([this] { readStreams(); });
}

ChildProcess::~ChildProcess() {
    if (!exitStatus) {
        signal(SIGKILL);
        waitForExit();
    }
    reader.join();
    ::close(standardOutput.descriptor);
    ::close(standardError.descriptor);
}

void ChildProcess::signal(int number) const {
    ::kill(process, number);
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (!exitStatus) {
        int status = 0;
        const pid_t ended = ::waitpid(process, &status, WNOHANG);
        if (ended == process) {
            constexpr int kSignalled = 128;
            exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
        } else if (Clock::now() >= end) {
            return std::nullopt;
        } else {
            ::poll(nullptr, 0, 1);
        }
    }
    return exitStatus;
}

void ChildProcess::readStreams() {
    const std::array<Stream*, 2> streams = {&standardOutput, &standardError};
    while (standardOutput.open || standardError.open) {
        std::array<pollfd, 2> items{};
        for (std::size_t i = 0; i < streams.size(); ++i) {
            items[i] = {streams[i]->open ? streams[i]->descriptor : -1, POLLIN, 0};
        }
        ::poll(items.data(), items.size(), -1);
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (items[i].revents == 0) {
                continue;
            }
            std::array<char, 65536> chunk;
            const ssize_t count = ::read(streams[i]->descriptor, chunk.data(), chunk.size());
            const std::lock_guard lock(mutex);
            if (count > 0) {
                streams[i]->text.append(chunk.data(), static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                streams[i]->open = false;
            }
            changed.notify_all();
        }
    }
}

bool ChildProcess::waitFor(Stream& stream, const std::string& text, int times,
                           std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, limit,
                     [&] { return countOf(stream.text, text) >= times || !stream.open; });
    return countOf(stream.text, text) >= times;
}

bool ChildProcess::waitForOutput(const std::string& text, int times,
                                 std::chrono::milliseconds limit) {
    return waitFor(standardOutput, text, times, limit);
}

bool ChildProcess::waitForError(const std::string& text, int times,
                                std::chrono::milliseconds limit) {
    return waitFor(standardError, text, times, limit);
}

Outcome ChildProcess::finish() {
    Outcome outcome;
    outcome.status = waitForExit();
    std::unique_lock lock(mutex);
    if (outcome.status) {
        constexpr std::chrono::seconds kPatience{10};
        changed.wait_for(lock, kPatience,
                         [this] { return !standardOutput.open && !standardError.open; });
    }
    outcome.output = standardOutput.text;
    outcome.error = standardError.text;
    return outcome;
}

Outcome run(std::vector<std::string> arguments) {
    return ChildProcess(std::move(arguments)).finish();
}

std::string ChildProcess::output() {
    const std::lock_guard lock(mutex);
    return standardOutput.text;
}

std::string ChildProcess::error() {
    const std::lock_guard lock(mutex);
    return standardError.text;
}

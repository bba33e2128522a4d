#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// How a process ended, and all that it wrote.
struct Outcome {
    /// Nothing when it did not end.
    std::optional<int> status;
    std::string output;
    std::string error;
};

/// A real process, started, talked to by signals and waited for. Its output is read all the time,
/// so that it never blocks on it. Whatever is still running is killed with the object.
class ChildProcess {
public:
    /// `arguments[0]` is the program: a path, or a name beside the service in the build.
    explicit ChildProcess(std::vector<std::string> arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&&) = delete;
    ChildProcess& operator=(ChildProcess&&) = delete;

    pid_t pid() const { return process; }
    void signal(int number) const;

    /// The exit status, or 128 plus the number of the signal that ended the process; nothing when
    /// it still runs after `limit`.
    std::optional<int> waitForExit(std::chrono::milliseconds limit = std::chrono::seconds(10));

    /// Waits until the output holds `text` at least `times` times. False after `limit`, or when the
    /// process has closed its output without it.
    bool waitForOutput(const std::string& text, int times = 1,
                       std::chrono::milliseconds limit = std::chrono::seconds(10));
    bool waitForError(const std::string& text, int times = 1,
                      std::chrono::milliseconds limit = std::chrono::seconds(10));

    /// Waits for the end of the process and of its output.
    Outcome finish();

    /// What has been written so far.
    std::string output();
    std::string error();

private:
    struct Stream {
        int descriptor = -1;
        std::string text;
        bool open = true;
    };

    void readStreams();
    bool waitFor(Stream& stream, const std::string& text, int times,
                 std::chrono::milliseconds limit);

    pid_t process = -1;
    std::optional<int> exitStatus;
    std::mutex mutex;
    std::condition_variable changed;
    Stream standardOutput;
    Stream standardError;
    std::thread reader;
};

/// Runs a program to its end.
Outcome run(std::vector<std::string> arguments);

/// How often `needle` occurs in `text`.
int countOf(const std::string& text, const std::string& needle);

/// The path of a program of this build.
std::string builtProgram(const std::string& name);

#include "platform/PlatformProtocol.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/NumberedConsumer.hpp"
#include "tests/torture/Service.hpp"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

namespace {

namespace fs = std::filesystem;

class ScratchDirectory {
public:
    ScratchDirectory() : path(fs::temp_directory_path() / "kaikla-torture-XXXXXX") {
        std::string name = path;
        require(::mkdtemp(name.data()) != nullptr, "there is a directory to write to");
        path = name;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ScratchDirectory(ScratchDirectory&&) = delete;
    ScratchDirectory& operator=(ScratchDirectory&&) = delete;

    fs::path path;
};

/// A service that has something to log.
class LoggingDevice {
public:
    explicit LoggingDevice(const Service::Options& options)
        : service(context, options),
          sessionManager(context, platform_protocol::kSessionManagerEndpoint), consumer(context) {
        sessionManager.waitForSubscriptions(3);
        require(service.addRemote(consumer.address()) == 0, "a consumer is registered");
    }

    /// Makes the service log at least `bytes`; every message has to arrive meanwhile.
    void logAtLeast(std::size_t bytes) {
        constexpr int kPatienceMs = 5000;
        const std::string ballast(2000, '.');
        for (std::size_t logged = 0; logged < bytes; logged += ballast.size()) {
            sessionManager.send(AvmgrPublisher::avmgr_session_status,
                                sessionStatus(1, std::to_string(sent) + ballast));
            require(consumer.readUpTo(sent++, kPatienceMs),
                    "messages go on whatever becomes of the log");
        }
    }

    zmq::context_t context;
    Service service;
    Notifier sessionManager;
    NumberedConsumer consumer;
    std::int64_t sent = 0;
};

constexpr std::size_t kSome = std::size_t{128} * 1024;
/// More than one log file holds.
constexpr std::size_t kMoreThanOneFile = std::size_t{5} * 1024 * 1024;
constexpr const char* kLost = "its lines are lost until it can be written again";
constexpr const char* kBack = "can be written again";

void nowhereToWrite(const Report& report) {
    LoggingDevice device({.arguments = {"-L", "/dev/full"}, .launcher = {}});
    device.logAtLeast(kSome);
    const std::string error = device.service.process().error();
    require(countOf(error, kLost) == 1, "a full disk is told once on standard error");
    report.figure("always full: messages delivered", device.sent);
    report.figure("always full: stop", device.service.stop().count(), "ms");
}

void diskWithoutRoom(const Report& report) {
    const ScratchDirectory scratch;
    const std::string directory = scratch.path;
    // A file system of 64 KiB that only the service sees, with 40 KiB of it taken.
    const std::string mountAndRun = "mount -t tmpfs -o size=64k tmpfs " + directory +
                                    " && head -c 40960 /dev/zero >" + directory +
                                    R"(/other && exec "$0" "$@")";
    if (std::system("unshare --map-root-user --mount true 2>/dev/null") != 0) {
        report.figure("filling up", std::string("not tried: this system allows no private mounts"));
        return;
    }
    LoggingDevice device({.arguments = {"-L", directory + "/log"},
                          .launcher = {"/usr/bin/unshare", "--map-root-user", "--mount", "/bin/sh",
                                       "-c", mountAndRun}});
    device.logAtLeast(kSome);
    require(countOf(device.service.process().error(), kLost) == 1,
            "a full disk is told once on standard error");
    fs::remove("/proc/" + std::to_string(device.service.process().pid()) + "/root" + directory +
               "/other");
    device.logAtLeast(1);
    require(device.service.process().waitForError(kBack, 2), "the log goes on when there is room");
    report.figure("filling up: messages delivered", device.sent);
    report.figure("filling up: stop", device.service.stop().count(), "ms");
}

void sizeLimit(const Report& report) {
    const ScratchDirectory scratch;
    LoggingDevice device({.arguments = {"-L", scratch.path / "log"},
                          .launcher = {"/usr/bin/prlimit", "--fsize=65536"}});
    device.logAtLeast(kSome);
    require(countOf(device.service.process().error(), kLost) == 1,
            "a file that may not grow is told once on standard error");
    report.figure("size limit: messages delivered", device.sent);
    report.figure("size limit: stop", device.service.stop().count(), "ms");
}

void vanishedDirectory(const Report& report) {
    const ScratchDirectory scratch;
    const fs::path directory = scratch.path / "logs";
    fs::create_directory(directory);
    LoggingDevice device({.arguments = {"-L", directory / "log"}, .launcher = {}});
    device.logAtLeast(kSome);
    fs::remove_all(directory);
    device.logAtLeast(kMoreThanOneFile);
    require(countOf(device.service.process().error(), kLost) == 1,
            "a vanished directory is told once on standard error");
    fs::create_directory(directory);
    device.logAtLeast(kSome);
    require(device.service.process().waitForError(kBack, 2),
            "the log goes on when the directory is back");
    require(fs::file_size(directory / "log") > 0, "the log goes on when the directory is back");
    report.figure("vanished directory: messages delivered", device.sent);
    report.figure("vanished directory: stop", device.service.stop().count(), "ms");
}

void nobodyReadsStandardError(const Report& report) {
    LoggingDevice device(
        {.arguments = {}, .launcher = {"/bin/bash", "-c", R"(exec "$0" "$@" 2> >(true))"}});
    device.logAtLeast(kSome);
    report.figure("standard error closed: messages delivered", device.sent);
    report.figure("standard error closed: stop", device.service.stop().count(), "ms");
}

} // namespace

void logFileFaults(const Report& report, Form /*form*/) {
    nowhereToWrite(report);
    diskWithoutRoom(report);
    sizeLimit(report);
    vanishedDirectory(report);
    nobodyReadsStandardError(report);
}

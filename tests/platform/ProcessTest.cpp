// What nobody sees from outside of the process: the poll set, and a signal between two frames.

#include "platform/PlatformProtocol.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/bundled/WholeMessage.hpp"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

namespace {

TEST(PollFds, KeepsTheOrderAndRefusesWhatItCannotTake) {
    PollFds pollFds;
    int socket = 0;
    EXPECT_EQ(pollFds.addFd(7, ZMQ_POLLIN), 0);
    EXPECT_EQ(pollFds.addSocket(&socket, ZMQ_POLLOUT), 0);
    EXPECT_EQ(pollFds.addFd(9, ZMQ_POLLIN), 0);
    EXPECT_EQ(pollFds.addSocket(nullptr, ZMQ_POLLIN), platform_protocol::kErrorPollSetFull);
    EXPECT_EQ(pollFds.addFd(-1, ZMQ_POLLIN), platform_protocol::kErrorPollSetFull);
    pollFds.removeFd(7);
    pollFds.removeFd(8);
    ASSERT_EQ(pollFds.getPollListSize(), 2);
    EXPECT_EQ(pollFds.getPollList()[0].socket, &socket);
    EXPECT_EQ(pollFds.getPollList()[0].events, ZMQ_POLLOUT);
    EXPECT_EQ(pollFds.getPollList()[1].fd, 9);
    while (pollFds.getPollListSize() < static_cast<int>(PollFds::kMaxItems)) {
        ASSERT_EQ(pollFds.addFd(1, ZMQ_POLLIN), 0);
    }
    EXPECT_EQ(pollFds.addFd(1, ZMQ_POLLIN), platform_protocol::kErrorPollSetFull);
}

extern "C" void takeNoNotice(int) {}

TEST(WholeMessage, IsNotTornApartBySignals) {
    struct sigaction action {};
    action.sa_handler = takeNoNotice;
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    zmq::context_t context;
    zmq::socket_t requester(context, zmq::socket_type::req);
    zmq::socket_t replier(context, zmq::socket_type::rep);
    replier.bind("tcp://127.0.0.1:*");
    requester.connect(replier.get(zmq::sockopt::last_endpoint));

    std::atomic<bool> over{false};
    std::thread storm([&over, target = pthread_self()] {
        while (!over) {
            pthread_kill(target, SIGUSR1);
        }
    });
    // Few calls are interrupted at the one moment that counts.
    for (int i = 0; i < 2'000 && !HasFailure(); ++i) {
        const std::string number = std::to_string(i);
        for (const zmq::send_flags flags : {zmq::send_flags::sndmore, zmq::send_flags::none}) {
            (void)whole_message::uninterrupted(
                [&] { return requester.send(zmq::buffer(number), flags); });
        }
        zmq::message_t first;
        zmq::message_t second;
        std::size_t frames = 0;
        while (frames == 0) {
            frames = whole_message::receive(replier, {&first, &second});
        }
        EXPECT_EQ(frames, 2U);
        EXPECT_EQ(second.to_string_view(), number);
        (void)whole_message::uninterrupted(
            [&] { return replier.send(first, zmq::send_flags::none); });
        while (whole_message::receive(requester, {&first}) == 0) {
        }
    }
    over = true;
    storm.join();
}

} // namespace

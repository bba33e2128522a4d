// What nobody sees from outside of the process: the poll set, and a signal between two frames.

#include "platform/PlatformProtocol.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/bundled/WholeMessage.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cerrno>

/// Stands before the library's: a signal comes first, each time that it is called.
extern "C" int zmq_msg_recv(zmq_msg_t* message, void* socket, int flags) {
    static const auto receive =
        reinterpret_cast<decltype(&zmq_msg_recv)>(::dlsym(RTLD_NEXT, "zmq_msg_recv"));
    static bool isInterrupted = false;
    isInterrupted = !isInterrupted;
    if (isInterrupted) {
        errno = EINTR;
        return -1;
    }
    return receive(message, socket, flags);
}

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

TEST(WholeMessage, IsNotTornApartBySignals) {
    zmq::context_t context;
    zmq::socket_t sender(context, zmq::socket_type::pair);
    zmq::socket_t receiver(context, zmq::socket_type::pair);
    receiver.bind("inproc://frames");
    sender.connect("inproc://frames");
    zmq::message_t first;
    zmq::message_t second;
    EXPECT_EQ(whole_message::receive(receiver, {&first, &second}), 0U);
    sender.send(zmq::str_buffer("topic"), zmq::send_flags::sndmore);
    sender.send(zmq::str_buffer("text"), zmq::send_flags::sndmore);
    sender.send(zmq::str_buffer("surplus"), zmq::send_flags::none);
    sender.send(zmq::str_buffer("next"), zmq::send_flags::none);
    EXPECT_EQ(whole_message::receive(receiver, {&first, &second}), 3U);
    EXPECT_EQ(first.to_string_view(), "topic");
    EXPECT_EQ(second.to_string_view(), "text");
    EXPECT_EQ(whole_message::receive(receiver, {&first, &second}), 1U);
    EXPECT_EQ(first.to_string_view(), "next");
}

} // namespace

#include "platform/bundled/WholeMessage.hpp"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

namespace {

extern "C" void takeNoNotice(int) {}

/// Signals the thread that makes it as fast as it can.
class SignalStorm {
public:
    SignalStorm() : storm([this, target = pthread_self()] { rage(target); }) {}
    ~SignalStorm() {
        over = true;
        storm.join();
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;
    SignalStorm(SignalStorm&&) = delete;
    SignalStorm& operator=(SignalStorm&&) = delete;

private:
    void rage(pthread_t target) const {
        while (!over) {
            pthread_kill(target, SIGUSR1);
        }
    }

    std::atomic<bool> over{false};
    std::thread storm;
};

TEST(WholeMessage, IsNotTornApartBySignals) {
    struct sigaction action {};
    action.sa_handler = takeNoNotice;
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    zmq::context_t context;
    zmq::socket_t requester(context, zmq::socket_type::req);
    zmq::socket_t replier(context, zmq::socket_type::rep);
    replier.bind("tcp://127.0.0.1:*");
    requester.connect(replier.get(zmq::sockopt::last_endpoint));

    const SignalStorm storm;
    // Few calls are interrupted at the one moment that counts.
    for (int i = 0; i < 10'000; ++i) {
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
        ASSERT_EQ(frames, 2U);
        ASSERT_EQ(second.to_string_view(), number);
        (void)whole_message::uninterrupted(
            [&] { return replier.send(first, zmq::send_flags::none); });
        while (whole_message::receive(requester, {&first}) == 0) {
        }
    }
}

} // namespace

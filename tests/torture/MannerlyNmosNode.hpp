#pragma once

#include <zmq.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

/// An NMOS node with manners of its own, on a thread of its own.
class MannerlyNmosNode {
public:
    struct Manner {
        bool answers = true;
        std::string answer;
        std::chrono::milliseconds after{0};
        /// Closes the connection instead of answering, and is gone for good.
        bool vanishes = false;
    };

    /// `behaviour` says what becomes of each request, counted from 1.
    MannerlyNmosNode(zmq::context_t& context, std::function<Manner(int request)> behaviour);
    ~MannerlyNmosNode();
    MannerlyNmosNode(const MannerlyNmosNode&) = delete;
    MannerlyNmosNode& operator=(const MannerlyNmosNode&) = delete;
    MannerlyNmosNode(MannerlyNmosNode&&) = delete;
    MannerlyNmosNode& operator=(MannerlyNmosNode&&) = delete;

    int requests() const { return requestsTaken; }

private:
    void play(zmq::socket_t socket);

    std::function<Manner(int)> manners;
    std::atomic<int> requestsTaken{0};
    std::atomic<bool> stopping{false};
    std::thread thread;
};

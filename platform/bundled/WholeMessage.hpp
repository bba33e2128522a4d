#pragma once

#include <zmq.hpp>

#include <cerrno>
#include <cstddef>
#include <initializer_list>

/// Sending and receiving one message, of however many frames, so that a signal never tears it
/// apart. Any call of the library may end with EINTR although there is nothing to wait for: a
/// request half received would leave its rest to be taken for the next one, and a reply not sent
/// would leave the socket waiting for it forever.
namespace whole_message {

template <typename Operation>
auto uninterrupted(const Operation& operation) {
    for (;;) {
        try {
            return operation();
        } catch (const zmq::error_t& error) {
            if (error.num() != EINTR) {
                throw;
            }
        }
    }
}

/// Receives the message that is there, without waiting: its frames into `frames`, surplus ones into
/// nothing. Returns how many frames it has, 0 when there is no message.
std::size_t receive(zmq::socket_t& socket, std::initializer_list<zmq::message_t*> frames);

} // namespace whole_message

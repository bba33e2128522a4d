#pragma once

#include <zmq.hpp>

#include <cerrno>
#include <cstddef>
#include <initializer_list>

/// One message, of any number of frames, sent or received whole. Any call of the library may end
/// with EINTR, also one that does not wait. A message half received would be taken for two, and a
/// REP socket whose reply was not sent takes no other request.
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

#include "platform/bundled/WholeMessage.hpp"

namespace whole_message {

std::size_t receive(zmq::socket_t& socket, std::initializer_list<zmq::message_t*> frames) {
    zmq::message_t surplus;
    for (std::size_t count = 0;;) {
        zmq::message_t& frame = count < frames.size() ? *frames.begin()[count] : surplus;
        // All frames of a message arrive together, so that only the first may not be there.
        if (!uninterrupted([&] { return socket.recv(frame, zmq::recv_flags::dontwait); })) {
            return count;
        }
        ++count;
        if (!frame.more()) {
            return count;
        }
    }
}

} // namespace whole_message

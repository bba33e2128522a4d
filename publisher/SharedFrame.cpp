#include "publisher/SharedFrame.hpp"

#include <memory>
#include <utility>

namespace {

extern "C" void freeBody(void* /*data*/, void* body) {
    delete static_cast<std::string*>(body);
}

} // namespace

zmq::message_t makeSharedFrame(std::string body) {
    auto owned = std::make_unique<std::string>(std::move(body));
    zmq::message_t frame(owned->data(), owned->size(), freeBody, owned.get());
    // From here on the library owns the text and calls freeBody.
    (void)owned.release();
    return frame;
}

#include "publisher/FrameEncoder.hpp"

#include "platform/records/JsonText.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

/// Longer than most sessions' statuses, so that they need not grow.
constexpr std::size_t kFirstCapacity = 1024;

extern "C" void freeBytes(void* bytes, void* /*hint*/) {
    std::free(bytes);
}

} // namespace

FrameEncoder::FrameEncoder() : writer(makeCompactWriter()) {
    // Without this a lack of memory would send what was written so far.
    stream.exceptions(std::ios::badbit);
}

zmq::message_t FrameEncoder::encode(const Json::Value& value) {
    stream.clear();
    buffer.restart();
    writer->write(value, &stream);
    return buffer.takeFrame();
}

FrameEncoder::Buffer::~Buffer() {
    std::free(pbase());
}

void FrameEncoder::Buffer::restart() {
    setp(pbase(), epptr());
}

zmq::message_t FrameEncoder::Buffer::takeFrame() {
    zmq::message_t frame(pbase(), static_cast<std::size_t>(pptr() - pbase()), freeBytes, nullptr);
    // From here on the library owns the bytes and calls freeBytes.
    setp(nullptr, nullptr);
    return frame;
}

FrameEncoder::Buffer::int_type FrameEncoder::Buffer::overflow(int_type character) {
    grow();
    return traits_type::eq_int_type(character, traits_type::eof())
               ? traits_type::not_eof(character)
               : sputc(traits_type::to_char_type(character));
}

void FrameEncoder::Buffer::grow() {
    const std::ptrdiff_t written = pptr() - pbase();
    const std::size_t capacity =
        pbase() == nullptr ? kFirstCapacity : 2 * static_cast<std::size_t>(epptr() - pbase());
    // The platform's allocator can often make a large block longer where it is.
    auto* bytes = static_cast<char*>(std::realloc(pbase(), capacity));
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    setp(bytes, bytes + capacity);
    // pbump takes an int, and a document may be longer than that counts.
    constexpr std::ptrdiff_t kStep = 1 << 30;
    for (std::ptrdiff_t left = written; left > 0; left -= kStep) {
        pbump(static_cast<int>(std::min(left, kStep)));
    }
}

#pragma once

#include <json/value.h>
#include <json/writer.h>
#include <zmq.hpp>

#include <memory>
#include <ostream>
#include <streambuf>

/// Turns JSON values into frames of compact JSON text for any number of receivers: every copy() of
/// a frame refers to the same bytes, which are freed with the last of them.
///
/// The writer writes into the very memory that leaves as the frame, and is kept from one message to
/// the next, since making one costs as much as writing a short message. Not shared between threads.
class FrameEncoder {
public:
    FrameEncoder();

    zmq::message_t encode(const Json::Value& value);

private:
    /// Memory that grows while it is written and then goes to a frame.
    class Buffer : public std::streambuf {
    public:
        Buffer() = default;
        ~Buffer() override;
        Buffer(const Buffer&) = delete;
        Buffer& operator=(const Buffer&) = delete;
        Buffer(Buffer&&) = delete;
        Buffer& operator=(Buffer&&) = delete;

        /// Forgets what an encoding that failed has left.
        void restart();
        /// What was written since restart, as a frame that owns it.
        zmq::message_t takeFrame();

    protected:
        int_type overflow(int_type character) override;

    private:
        void grow();
    };

    std::unique_ptr<Json::StreamWriter> writer;
    Buffer buffer;
    std::ostream stream{&buffer};
};

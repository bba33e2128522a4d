#pragma once

#include <zmq.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace kaiklactl {

/// Lines on their way to a descriptor that somebody else reads, at his own speed. Nothing here
/// waits: when he does not read, lines are kept up to a limit and then left out, so that messages
/// are taken from the service all the same. A consumer that stopped taking them would hold it up.
class LineOutput {
public:
    explicit LineOutput(int outputDescriptor) : descriptor(outputDescriptor) {}

    /// Writes `line` and a line break now, as far as they are taken.
    void add(std::string_view line);

    /// Ready when more is taken, or when nobody reads any longer.
    zmq_pollitem_t pollItem() const;
    /// Goes on writing. `revents` is what became of the poll item.
    void proceed(short revents);

    /// Whether everything has been written.
    bool idle() const { return pending.empty(); }
    /// Whether nothing will be taken any more.
    bool closed() const { return isClosed; }
    /// Why, when it was not the reader's wish: a disk is full.
    int error() const { return errorNumber; }

    /// How many lines have been left out since the last call.
    std::size_t takeLeftOut();

private:
    void write();

    int descriptor;
    std::string pending;
    /// How much of `pending` has left already.
    std::size_t written = 0;
    std::size_t leftOut = 0;
    bool isClosed = false;
    int errorNumber = 0;
};

} // namespace kaiklactl

#pragma once

#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <cstddef>
#include <string>
#include <string_view>

/// What a person or a pipe gets to see.
namespace kaiklactl {

/// A text as a terminal may get it, and how many columns it takes there.
struct PrintableText {
    std::string text;
    std::size_t columns = 0;
};

/// Makes `raw` harmless: control characters, line breaks, text direction marks and bytes that are
/// not UTF-8 come out as escapes (`\x1b`, `\u202e`), so that nothing that came from the network
/// moves the cursor, breaks a line or turns a word round.
PrintableText printable(std::string_view raw);

/// How a piece of text stands out.
enum class Style { plain, heading, good, warning, alarm };

/// Puts `text` into a style; leaves it as it is when `colour` is false.
std::string painted(const std::string& text, Style style, bool colour);

/// Whether standard output is a terminal that wants colour: never with NO_COLOR set, never on a
/// terminal that calls itself dumb.
bool colourWanted();

/// One line on standard error. The text may come from the network. A standard error that takes
/// nothing is not waited for.
void notice(const std::string& text);

/// Lines for a reader that may be slow. Nothing here waits: lines that are not read are kept up to
/// a limit and then left out. A consumer that waited for its reader would block the service.
class LineOutput {
public:
    explicit LineOutput(int outputDescriptor) : descriptor(outputDescriptor) {}

    /// Writes `line` and a line break now, as far as the reader takes them.
    void add(std::string_view line);

    /// Ready when the reader takes more, or has gone.
    zmq_pollitem_t pollItem() const;
    /// Goes on writing; `revents` is the poll item's.
    void proceed(short revents);

    /// Whether everything has been written.
    bool idle() const { return pending.empty(); }
    /// Whether nothing can be written any more: the reader has gone, or a write failed.
    bool closed() const { return isClosed; }
    /// Throws std::runtime_error when a write failed, because the disk is full for example.
    void check() const;

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

/// Prints `text`, unless empty, and a line break on standard output. A reader that has gone is no
/// error. Throws std::runtime_error when it cannot be written, client::Interrupted when a signal
/// ends the wait for a slow reader.
void print(std::string_view text, StopSignals& stop);

} // namespace kaiklactl

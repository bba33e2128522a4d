#pragma once

#include <cstddef>
#include <string>
#include <string_view>

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

} // namespace kaiklactl

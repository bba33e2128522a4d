#pragma once

#include <span>
#include <string_view>

namespace gateway {

/// One file of the page, as it is built into the program.
struct Asset {
    /// "NAME.html" of a document, "/assets/NAME.HASH.EXT" of any other file.
    std::string_view path;
    const char* type;
    std::span<const unsigned char> plain;
    std::span<const unsigned char> gzip;
};

std::span<const Asset> assets();

} // namespace gateway

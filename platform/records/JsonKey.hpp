#pragma once

#include <json/value.h>

#include <cstddef>

/// The name of a member of a JSON object, always a literal. Writing through it spares the library a
/// copy of the name for every member of every message, reading through it a count of its length.
class JsonKey {
public:
    template <std::size_t Size>
    consteval JsonKey(const char (&literal)[Size]) : text(literal), length(Size - 1) {}

    operator Json::StaticString() const { return Json::StaticString(text); }

    const char* begin() const { return text; }
    const char* end() const { return text + length; }

private:
    const char* text;
    std::size_t length;
};

#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

/// The texts of an enumeration's values as one table for writing and reading. What becomes of a
/// value without a text, of an unknown text and of a missing key is each record's own rule and
/// stands at the record.
namespace text_table {

enum class Use { both_ways, written_only, read_only };

template <typename Enum>
struct Row {
    const char* text;
    Enum value;
    Use use = Use::both_ways;
};

/// The text that `value` is written as; `otherwise` when the table writes none for it.
template <typename Enum, std::size_t N>
const char* textOf(const Row<Enum> (&table)[N], Enum value, const char* otherwise) {
    for (const Row<Enum>& row : table) {
        if (row.value == value && row.use != Use::read_only) {
            return row.text;
        }
    }
    return otherwise;
}

/// The value that `text` is read as; nothing when the table reads none from it. `same` compares
/// `text` with a row's text.
template <typename Enum, std::size_t N, typename Same = std::equal_to<>>
std::optional<Enum> valueOf(const Row<Enum> (&table)[N], const std::string& text, Same same = {}) {
    for (const Row<Enum>& row : table) {
        if (row.use != Use::written_only && same(text, row.text)) {
            return row.value;
        }
    }
    return std::nullopt;
}

} // namespace text_table

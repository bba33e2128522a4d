#pragma once

#include "tools/kaiklactl/TerminalText.hpp"

#include <string>
#include <vector>

namespace kaiklactl {

/// One field of a table. The text may come from the network.
struct Cell {
    Cell(std::string content,
         Style contentStyle = Style::plain) // NOLINT(google-explicit-constructor)
        : text(std::move(content)), style(contentStyle) {}
    Cell(const char* content) : text(content) {} // NOLINT(google-explicit-constructor)

    std::string text;
    Style style = Style::plain;
};

/// Rows of left-aligned columns, as wide as their widest field, two blanks apart.
class Table {
public:
    Table() = default;
    explicit Table(const std::vector<std::string>& headings);

    /// Rows need not have the same number of fields.
    void add(const std::vector<Cell>& row);

    /// One line a row, without blanks at their ends.
    std::string text(bool colour) const;

private:
    struct Field {
        PrintableText content;
        Style style;
    };
    std::vector<std::vector<Field>> rows;
};

} // namespace kaiklactl

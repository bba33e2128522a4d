#include "tools/kaiklactl/Table.hpp"

#include <algorithm>

namespace kaiklactl {

Table::Table(const std::vector<std::string>& headings) {
    std::vector<Cell> row;
    row.reserve(headings.size());
    for (const std::string& heading : headings) {
        row.emplace_back(heading, Style::heading);
    }
    add(row);
}

void Table::add(const std::vector<Cell>& row) {
    std::vector<Field>& fields = rows.emplace_back();
    fields.reserve(row.size());
    for (const Cell& cell : row) {
        fields.push_back({printable(cell.text), cell.style});
    }
}

std::string Table::text(bool colour) const {
    constexpr std::size_t kGap = 2;
    std::vector<std::size_t> widths;
    for (const std::vector<Field>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].content.columns);
        }
    }
    std::string text;
    for (const std::vector<Field>& row : rows) {
        std::size_t blanks = 0;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const PrintableText& content = row[i].content;
            if (!content.text.empty()) {
                text.append(blanks, ' ');
                text += painted(content.text, row[i].style, colour);
                blanks = 0;
            }
            blanks += widths[i] - content.columns + kGap;
        }
        text += '\n';
    }
    return text;
}

} // namespace kaiklactl

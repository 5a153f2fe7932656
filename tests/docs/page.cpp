#include "page.h"

#include <algorithm>
#include <fstream>

namespace kavo::docs {

namespace {

std::string trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return "";
    return std::string(text.substr(first, text.find_last_not_of(' ') - first + 1));
}

// "| a | b |" is two cells.
std::vector<std::string> cells_of(std::string_view line) {
    std::vector<std::string> cells;
    line.remove_prefix(1);
    for (std::size_t bar = line.find('|'); bar != std::string_view::npos; bar = line.find('|')) {
        cells.push_back(trimmed(line.substr(0, bar)));
        line.remove_prefix(bar + 1);
    }
    return cells;
}

Table table_on(const std::string& page, std::string_view first_column) {
    for (const std::vector<Table> tables = tables_on(page); const Table& table : tables) {
        if (table.columns.front() == first_column) return table;
    }
    return {};
}

}  // namespace

std::string unquoted(const std::string& text) {
    const std::size_t open = text.find('`');
    if (open == std::string::npos) return text;
    return text.substr(open + 1, text.find('`', open + 1) - open - 1);
}

std::vector<std::string> Table::column(std::string_view name) const {
    const auto at = static_cast<std::size_t>(std::find(columns.begin(), columns.end(), name) - columns.begin());
    std::vector<std::string> cells;
    for (const std::vector<std::string>& row : rows) {
        if (at < row.size()) cells.push_back(unquoted(row[at]));
    }
    return cells;
}

std::vector<std::string> lines_of(const std::string& page) {
    std::ifstream file(std::string(KAVO_DOCS_DIR) + "/" + page);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

std::vector<Table> tables_on(const std::string& page) {
    std::vector<Table> tables;
    std::string heading;
    bool in_table = false;
    for (const std::vector<std::string> lines = lines_of(page); const std::string& line : lines) {
        const bool was_in_table = std::exchange(in_table, line.starts_with('|'));
        if (line.starts_with('#')) heading = trimmed(line.substr(std::min(line.find(' '), line.size())));
        if (!in_table) continue;
        if (!was_in_table) {
            tables.push_back({heading, cells_of(line), {}});
        } else if (!line.starts_with("|-")) {
            tables.back().rows.push_back(cells_of(line));
        }
    }
    return tables;
}

std::vector<std::string> blocks_on(const std::string& page, std::string_view language) {
    const std::string fence = "```";
    std::vector<std::string> blocks;
    bool inside = false;
    for (const std::vector<std::string> lines = lines_of(page); const std::string& line : lines) {
        if (line.starts_with(fence)) {
            inside = !inside && line.substr(fence.size()) == language;
            if (inside) blocks.emplace_back();
        } else if (inside) {
            blocks.back() += line + "\n";
        }
    }
    return blocks;
}

std::vector<std::string> words_on(const std::string& page, std::string_view first_column) {
    return table_on(page, first_column).column(first_column);
}

Pairs pairs_on(const std::string& page, std::string_view first_column, std::string_view other_column) {
    const Table table = table_on(page, first_column);
    const std::vector<std::string> firsts = table.column(first_column);
    const std::vector<std::string> others = table.column(other_column);
    Pairs pairs;
    for (std::size_t i = 0; i < std::min(firsts.size(), others.size()); ++i) pairs.emplace_back(firsts[i], others[i]);
    return pairs;
}

}  // namespace kavo::docs

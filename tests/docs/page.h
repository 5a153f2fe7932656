// A page of docs/ as a test reads it: its tables, each with the heading under which it stands.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kavo::docs {

struct Table {
    std::string heading;  // without its marks; empty above the first one
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;

    // The cells below the name of a column, freed of blanks and backquotes; none when there is no such column.
    std::vector<std::string> column(std::string_view name) const;
};

//   page  "bench.md"; one that cannot be read is empty
std::vector<std::string> lines_of(const std::string& page);
std::vector<Table> tables_on(const std::string& page);

// The first column of a table, found by its name.
std::vector<std::string> words_on(const std::string& page, std::string_view first_column);

// The same side by side with another column of that table.
using Pairs = std::vector<std::pair<std::string, std::string>>;
Pairs pairs_on(const std::string& page, std::string_view first_column, std::string_view other_column);

// What is fenced as this language, block by block, each line ended.
std::vector<std::string> blocks_on(const std::string& page, std::string_view language);

// What the first backquotes of a text enclose; the whole text when there are none.
std::string unquoted(const std::string& text);

}  // namespace kavo::docs

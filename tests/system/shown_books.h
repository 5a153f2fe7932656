// What `kavo feed` has shown, held against the book truth of the venue.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "client/control_client.h"
#include "support/process.h"
#include "support/scene.h"

namespace kavo::test {

// The arguments of /bin/sh that start a program whose standard output is overheard like its errors, and which reads a
// file instead of a keyboard.
inline std::vector<std::string> overheard(const std::string& program, const std::vector<std::string>& arguments,
                                          const std::string& input = "/dev/null") {
    std::vector<std::string> all = {"-c", R"(input=$1; shift; exec "$@" <"$input" >&2)", "sh", input, program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

// The best three levels of a side of a truth line, [[189.9900,300],[189.9800,100]], as the tool shows them: "
// 300@189.99" and so on, the best one next to the other side.
inline std::string shown_side(const std::string& line, const std::string& name, bool best_is_last) {
    std::istringstream rest(line.substr(line.find("\"" + name + "\":[") + name.size() + 4));
    std::string side;
    for (int left = 3; left > 0 && rest.peek() == '['; --left) {
        std::string price;
        std::string quantity;
        std::getline(rest.ignore(), price, ',');
        std::getline(rest, quantity, ']');
        price.erase(price.find_last_not_of('0') + 1);
        if (price.back() == '.') price.pop_back();
        const std::string level = " " + quantity + "@" + price;
        side = best_is_last ? level + side : side + level;
        rest.ignore();  // the comma
    }
    return side;
}

// The books of a book truth as the tool shows them: of each symbol, by the number of the message.
inline std::map<std::string, std::map<std::uint64_t, std::string>> books_of(const TemporaryFile& truth) {
    std::map<std::string, std::map<std::uint64_t, std::string>> books;
    for (const std::string& line : truth.lines()) {
        const std::size_t start = line.find("\"symbol\":\"") + 10;
        const std::string symbol = line.substr(start, line.find('"', start) - start);
        books[symbol][number_behind("\"seq\":", line)] =
            symbol + " " + shown_side(line, "bid", true) + " |" + shown_side(line, "ask", false);
    }
    return books;
}

// What `kavo feed --book` has printed.
struct ShownBooks {
    //   label  what stands in front of each of its lines; others are somebody else's
    explicit ShownBooks(const std::string& said, const std::string& label = "");

    // Every book that was shown is the true one, and none was left out that any of these messages changed.
    void expect(const TemporaryFile& truth) const;

    std::vector<std::uint64_t> messages;  // as they were shown
    std::vector<std::string> remarks;
    std::map<std::uint64_t, std::string> books;                   // after each message that changed one
    std::map<std::uint64_t, std::vector<std::string>> refreshed;  // as of a message
};

inline ShownBooks::ShownBooks(const std::string& said, const std::string& label) {
    const std::string refresh = "--- refresh: the books as of message ";
    std::istringstream lines(said);
    std::vector<std::string>* snapshot = nullptr;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(label)) continue;
        line.erase(0, label.size());
        if (line.starts_with("    ")) {
            line.erase(0, 4);
            if (snapshot != nullptr) {
                snapshot->push_back(line);
            } else {
                EXPECT_TRUE(books.emplace(messages.at(messages.size() - 1), line).second) << line;
            }
            continue;
        }
        snapshot = line.starts_with(refresh) ? &refreshed[std::stoull(line.substr(refresh.size()))] : nullptr;
        if (line.starts_with("--- ")) remarks.push_back(line.substr(4));
        if (std::isdigit(line.front()) != 0) messages.push_back(std::stoull(line));
    }
}

inline void ShownBooks::expect(const TemporaryFile& truth) const {
    std::size_t changes = 0;
    for (const auto& [symbol, true_books] : books_of(truth)) {
        for (const std::uint64_t sequence : messages) {
            const auto book = true_books.find(sequence);
            if (book == true_books.end()) continue;
            ++changes;
            const auto shown = books.find(sequence);
            ASSERT_TRUE(shown != books.end()) << "no book behind message " << sequence;
            ASSERT_EQ(shown->second, book->second) << "behind message " << sequence;
        }
        for (const auto& [as_of, snapshot] : refreshed) {
            const std::string& book = std::prev(true_books.upper_bound(as_of))->second;
            EXPECT_EQ(std::count(snapshot.begin(), snapshot.end(), book), 1) << book << " as of " << as_of;
        }
    }
    EXPECT_EQ(changes, books.size());
}

}  // namespace kavo::test

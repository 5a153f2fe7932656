// Where commands come from, a line at a time, while somebody else is to be listened to as well. On a terminal a line
// can be edited, earlier ones come back with the arrow keys, and what is printed meanwhile goes above the line that is
// being written. Without a terminal it reads plain lines and prints plain text.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kavo::companion {

class Prompt {
public:
    // Called when `heard` can be read, and twice a second; false ends the input.
    using Listen = std::function<bool()>;

    //   edited  take standard input and output for a terminal
    //   text    what stands in front of a line there
    Prompt(bool edited, const std::string& text, int heard, Listen listen);
    ~Prompt();
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    // The next line, without its end; nothing when there is none to come.
    std::optional<std::string> next_line();
    // Whole lines.
    void print(const std::string& lines);

    bool edited() const { return terminal_ != nullptr; }

private:
    struct Terminal;

    // Waits for standard input and listens meanwhile; false when listening says that it is over.
    bool wait_for_input() const;
    std::optional<std::string> next_plain_line();

    int heard_;
    Listen listen_;
    std::string read_;  // and not given out yet
    bool ended_ = false;
    std::unique_ptr<Terminal> terminal_;
};

}  // namespace kavo::companion

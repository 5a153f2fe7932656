// A log of lines for tests to read: a file that is appended to, or whoever listens instead of one.
#pragma once

#include <fstream>
#include <functional>
#include <string>
#include <string_view>

namespace kavo {

class LineLog {
public:
    // Takes a line, its end included.
    using Listener = std::function<void(std::string_view line)>;

    // Appends to the file from here on. One that cannot be opened stays silent, and its lines are skipped.
    void open(const std::string& path);
    // From here on the lines go to the listener, and no further.
    void write_to(Listener listener);

    // False when nobody would get a line: none was opened, or a write has failed. Asked before a line is put together.
    bool is_on() const { return listener_ || (file_.is_open() && file_.good()); }
    // Lines are kept back by the file's buffer until it is flushed.
    void write(std::string_view line);
    void flush();

private:
    std::ofstream file_;
    Listener listener_;
};

}  // namespace kavo

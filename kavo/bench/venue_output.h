// What the venue says on standard error, as it is said: lines of venue.log with their times, "SECONDS.NANOSECONDS
// text", nine digits behind the point. It is always read, since a venue that nobody reads stands still.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

#include "kavo/basics/loop.h"

namespace kavo::companion {

class VenueOutput {
public:
    //   pipe  non-blocking, and closed by the caller after this object is gone
    // Throws Problem when the file cannot be opened.
    VenueOutput(Loop& loop, int pipe, const std::filesystem::path& file);
    ~VenueOutput();
    VenueOutput(const VenueOutput&) = delete;
    VenueOutput& operator=(const VenueOutput&) = delete;

    // Reads what has been said.
    void drain();
    bool ended() const { return ended_; }  // nobody is left to say anything
    bool whole() const { return static_cast<bool>(log_); }
    // For an error message: the last lines, each on a line of its own and indented.
    std::string last_lines() const;

    std::function<void(std::string_view line)> on_line;

private:
    void take(std::string_view line, std::uint64_t t_ns);

    Loop& loop_;
    int pipe_;
    std::ofstream log_;
    std::string begun_;  // a line without its end
    std::deque<std::string> last_;
    bool ended_ = false;
};

}  // namespace kavo::companion

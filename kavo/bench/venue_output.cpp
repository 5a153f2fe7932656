#include "kavo/bench/venue_output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

constexpr std::size_t lines_in_a_message = 10;
constexpr std::size_t longest_shown_bytes = 400;

}  // namespace

VenueOutput::VenueOutput(Loop& loop, int pipe, const std::filesystem::path& file)
    : loop_(loop), pipe_(pipe), log_(file, std::ios::app) {
    if (!log_) throw Problem(Status::bench, "cannot write " + file.string() + ": choose another folder with --dir.");
    loop_.watch(pipe_, POLLIN, [this](short) { drain(); });
}

VenueOutput::~VenueOutput() {
    loop_.forget(pipe_);
}

void VenueOutput::drain() {
    char bytes[16'384];
    ssize_t count = 0;
    while (!ended_ && (count = read(pipe_, bytes, sizeof bytes)) > 0) {
        const std::uint64_t t_ns = now_ns();
        begun_.append(bytes, static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (std::size_t end; (end = begun_.find('\n', start)) != std::string::npos; start = end + 1) {
            take(std::string_view(begun_).substr(start, end - start), t_ns);
        }
        begun_.erase(0, start);
    }
    log_.flush();
    if (ended_ || count != 0) return;
    ended_ = true;
    loop_.forget(pipe_);
    if (!begun_.empty()) take(begun_, now_ns());
    log_.flush();
}

void VenueOutput::take(std::string_view line, std::uint64_t t_ns) {
    constexpr std::uint64_t ns_per_s = 1'000'000'000;
    char time[40];
    std::snprintf(time, sizeof time, "%llu.%09llu ", static_cast<unsigned long long>(t_ns / ns_per_s),
                  static_cast<unsigned long long>(t_ns % ns_per_s));
    log_ << time << line << '\n';
    last_.emplace_back(line.substr(0, longest_shown_bytes));
    if (last_.size() > lines_in_a_message) last_.pop_front();
    if (on_line) on_line(line);
}

std::string VenueOutput::last_lines() const {
    if (last_.empty()) return " It said nothing.";
    std::string text = " The last that it said:";
    for (const std::string& line : last_) text += "\n    " + line;
    return text;
}

}  // namespace kavo::companion

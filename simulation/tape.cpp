#include "tape.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

namespace kavo::simulation {

namespace {

constexpr std::array<std::string_view, 14> step_names{
    "start of day", "commands",     "accept",         "serve",    "market",    "deliver",     "announce lapse",
    "timers",       "bench report", "feed heartbeat", "recovery", "snapshots", "feed report", "end of day",
};

}  // namespace

std::string_view name_of(Step step) {
    return step_names.at(static_cast<std::size_t>(step));
}

Entry entry_of(What what, int fd, ByteView bytes, bool flag) {
    Entry entry;
    entry.what = what;
    entry.fd = fd;
    entry.flag = flag;
    entry.bytes.assign(bytes.begin(), bytes.end());
    return entry;
}

Entry line_of(What what, std::string_view text) {
    Entry entry;
    entry.what = what;
    entry.text = text;
    return entry;
}

Entry step_entry(Step step) {
    Entry entry;
    entry.what = What::step;
    entry.step = step;
    return entry;
}

Entry clock_entry(std::uint64_t steady_ms, std::uint64_t wall_ns) {
    Entry entry;
    entry.what = What::clock;
    entry.steady_ms = steady_ms;
    entry.wall_ns = wall_ns;
    return entry;
}

std::string printed(const char* pattern, ...) {
    char text[1024];
    std::va_list arguments;
    va_start(arguments, pattern);
    const int size = std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return {text, std::min(static_cast<std::size_t>(size), sizeof text - 1)};
}

}  // namespace kavo::simulation

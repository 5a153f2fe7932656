#include "tape.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "app/venue.h"

namespace kavo::simulation {

std::string_view name_of(Step step) {
    if (step == Step::start_of_day) return "start of day";
    if (step == Step::end_of_day) return "end of day";
    return Venue::steps()[static_cast<std::size_t>(step)].name;
}

Entry entry_of(What what, int fd, ByteView bytes) {
    Entry entry;
    entry.what = what;
    entry.fd = fd;
    entry.bytes.assign(bytes.begin(), bytes.end());
    return entry;
}

Entry sent_entry(What what, int fd, ByteView bytes, std::size_t taken, bool more_follows) {
    Entry entry = entry_of(what, fd, bytes);
    entry.taken = taken;
    entry.flag = more_follows;
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

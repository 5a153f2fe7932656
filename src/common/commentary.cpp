#include "common/commentary.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

namespace kavo {

namespace {

// Once for its length, and once for the text.
std::string formatted(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace

Commentary::Commentary(Listener listener) : listener_(std::move(listener)) {}

void Commentary::say(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    if (listener_) {
        listener_(formatted(format, arguments));
    } else {
        std::vfprintf(stderr, format, arguments);
    }
    va_end(arguments);
}

}  // namespace kavo

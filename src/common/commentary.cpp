#include "common/commentary.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

namespace kavo {

Commentary::Commentary(Listener listener) : listener_(std::move(listener)) {}

void Commentary::say(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    if (!listener_) {
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
        return;
    }
    std::va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    listener_(text);
}

}  // namespace kavo

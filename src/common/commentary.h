// What the venue tells whoever runs it, line by line: on standard error, unless a test listens.
#pragma once

#include <functional>
#include <string_view>

namespace kavo {

class Commentary {
public:
    // Takes a text as it was said: one line or a few, line ends included.
    using Listener = std::function<void(std::string_view text)>;

    Commentary() = default;  // to standard error
    explicit Commentary(Listener listener);

    // As printf. A listener hears a text of any length in one piece.
    [[gnu::format(printf, 2, 3)]] void say(const char* format, ...) const;

private:
    Listener listener_;
};

}  // namespace kavo

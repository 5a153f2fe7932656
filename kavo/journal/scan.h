// Reads a text from its beginning, piece by piece. Whoever tries several readings keeps a copy to go back to.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace kavo::companion {

class Scan {
public:
    explicit Scan(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    std::string_view rest() const { return {at_, static_cast<std::size_t>(end_ - at_)}; }
    bool at_end() const { return at_ == end_; }

    // Each takes what it names off the beginning; false, and nothing taken off, when something else stands there.
    bool skip(std::string_view expected) {
        if (!rest().starts_with(expected)) return false;
        at_ += expected.size();
        return true;
    }
    bool letter(char& letter) {
        if (at_end()) return false;
        letter = *at_++;
        return true;
    }
    template <typename Count>
    bool number(Count& value) {
        if (at_end() || *at_ < '0' || *at_ > '9') return false;  // neither a sign nor a word
        const auto read = std::from_chars(at_, end_, value);
        if (read.ec != std::errc{}) return false;
        at_ = read.ptr;
        return true;
    }
    // So many bytes, whatever they are.
    bool text(std::string_view& text, std::size_t size) {
        if (rest().size() < size) return false;
        text = {at_, size};
        at_ += size;
        return true;
    }

private:
    const char* at_;
    const char* end_;
};

}  // namespace kavo::companion

#include "common/bytes.h"

#include <algorithm>

namespace kavo {

void put_text(MutableBytes message, Text field, std::string_view text, char padding) {
    const MutableBytes target = message.subspan(field.at, field.size);
    const std::size_t kept = std::min(text.size(), field.size);
    std::copy_n(text.begin(), kept, target.begin());
    std::fill(target.begin() + static_cast<std::ptrdiff_t>(kept), target.end(), static_cast<std::uint8_t>(padding));
}

std::string_view padded_text(ByteView message, Text field) {
    std::string_view text = as_text(message.subspan(field.at, field.size));
    while (!text.empty() && is_padding(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view terminated_text(ByteView message, Text field) {
    std::string_view text = as_text(message.subspan(field.at, field.size));
    text = text.substr(0, text.find('\0'));
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
}

}  // namespace kavo

// Lists and numbers as the texts of flags, scenario and control port have them, stated a second time.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kavo::model {

// The items between commas. A comma at the very end begins no further item.
std::vector<std::string_view> comma_list(std::string_view text);

// A leading number in plain decimal: blanks and a sign may come before it, anything may follow. Nothing when there is
// no number, or one that does not fit.
//   leading_unsigned  64 bits; a minus sign wraps
//   leading_int       32 bits
std::optional<std::uint64_t> leading_unsigned(std::string_view text);
std::optional<std::int32_t> leading_int(std::string_view text);

}  // namespace kavo::model

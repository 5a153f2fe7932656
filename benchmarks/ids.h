// Client order ids for benchmarks: four letters and sixteen digits, the whole width of the field, made in no time.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace kavo::benchmarks {

using Id = std::array<char, 20>;

// "ORDR" and 42 give "ORDR0000000000000042".
inline Id make_id(std::string_view four_letters, std::uint64_t number) {
    Id id;
    id.fill('0');
    std::copy_n(four_letters.begin(), 4, id.begin());
    for (auto digit = id.rbegin(); number != 0; number /= 10) *digit++ = static_cast<char>('0' + number % 10);
    return id;
}

inline std::string_view text_of(const Id& id) {
    return {id.data(), id.size()};
}

}  // namespace kavo::benchmarks

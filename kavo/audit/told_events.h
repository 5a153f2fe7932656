// What a message to a user says of an event that the order truth has a line for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/bytes.h"
#include "common/price.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

struct ToldEvent {
    std::string_view event;
    std::uint64_t t_ns = 0;
    std::string_view client_order_id;
    // As far as the message says it.
    std::optional<std::uint64_t> order_id = {};
    std::optional<std::uint32_t> product_id = {};
    std::optional<char> side = {};
    std::optional<std::uint32_t> quantity = {};
    std::optional<WirePrice> price = {};
    std::optional<std::uint32_t> leaves = {};
    std::optional<std::uint32_t> last_quantity = {};
    std::optional<std::string_view> original = {};
    std::vector<std::string_view> causes = {};  // one of these; empty is none
    bool owns_line = true;                      // false when another message of the same event owns it
    bool may_be_race = false;                   // a fill of all that was open may stand in its place
};

// Nothing for a message that leaves no line.
std::optional<ToldEvent> told_event(ByteView message);

// In what a line differs from what was told; empty for nothing.
//   symbols  in the order of their product ids; those that are not known are not compared
std::string difference(const ToldEvent& told, const OrderLine& line, const std::vector<std::string>& symbols);

}  // namespace kavo::companion

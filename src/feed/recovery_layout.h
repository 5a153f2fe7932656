// What a receiver and the service behind the feed say to each other inside the packets of the session protocol, as
// tables of named offsets. A message that is sent again is sequenced data, under its number on the feed.
#pragma once

#include "common/bytes.h"

namespace kavo {

namespace layout::retransmission_request {  // payload of a retransmission request packet
inline constexpr Number<std::uint64_t> first{0};
inline constexpr Number<std::uint64_t> last{8};  // inclusive
inline constexpr std::size_t min_size = end_of(last);
static_assert(adjoin(first, last));
}  // namespace layout::retransmission_request

namespace layout::refresh_request {  // payload of an unsequenced packet from the receiver
inline constexpr Letter request{0};  // 'R'
inline constexpr Letter refresh_type{1};
inline constexpr std::size_t min_size = end_of(refresh_type);
static_assert(adjoin(request, refresh_type));
}  // namespace layout::refresh_request

namespace layout::refresh_message {  // payload of an unsequenced packet to the receiver; the message follows
inline constexpr Letter reply{0};    // 'r'
inline constexpr Number<std::uint64_t> as_of{1};
inline constexpr std::size_t header_size = end_of(as_of);
static_assert(adjoin(reply, as_of));
}  // namespace layout::refresh_message

namespace layout::refresh_end {
inline constexpr Letter end{0};  // 'E'
inline constexpr Letter refresh_type{1};
inline constexpr std::size_t size = end_of(refresh_type);
static_assert(adjoin(end, refresh_type));
}  // namespace layout::refresh_end

enum class RefreshType : char { all = 'O', definitions = 'S', system_state = 's', trading_status = 't' };

}  // namespace kavo

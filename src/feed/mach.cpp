#include "feed/mach.h"

namespace kavo::mach {

HeaderBytes build(const Header& header) {
    HeaderBytes bytes{};
    put(bytes, layout::sequence, header.sequence);
    put(bytes, layout::length, header.length);
    put(bytes, layout::type, static_cast<std::uint8_t>(header.type));
    put(bytes, layout::session, header.session);
    return bytes;
}

}  // namespace kavo::mach

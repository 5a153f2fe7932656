#include "kavo/basics/now.h"

#include <ctime>

namespace kavo::companion {

std::uint64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace kavo::companion

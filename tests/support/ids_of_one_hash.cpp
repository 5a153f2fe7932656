#include "support/ids_of_one_hash.h"

#include <cstdint>
#include <stdexcept>
#include <unordered_map>

#include "engine/meo.h"

namespace kavo::test {

// Among a million ids there are two of one hash, more than a hundred times over: some eighty thousand will do.
std::pair<std::string, std::string> two_ids_of_one_hash() {
    std::unordered_map<std::uint32_t, std::string> ids;
    for (int i = 0; i < 1'000'000; ++i) {
        const std::string id = "order-" + std::to_string(i);
        const auto [entry, is_new] = ids.try_emplace(meo::ClientOrderId(id).hash, id);
        if (!is_new) return {entry->second, id};
    }
    throw std::runtime_error("a million ids without two of one hash");
}

}  // namespace kavo::test

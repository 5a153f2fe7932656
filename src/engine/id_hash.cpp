#include "engine/id_hash.h"

#include <random>

namespace kavo {

IdHash::IdHash() {
    std::random_device device;
    for (std::uint64_t& word : key_) word = std::uint64_t{device()} << 32 | device();
    mixed_zeros_ = mixed({});
}

}  // namespace kavo

// The hash of client order ids. Clients choose these, so it goes by a key that is drawn anew in each process: who does
// not know it cannot make up ids of one hash, among which every look-up would become a walk.
#pragma once

#include <array>
#include <cstdint>

namespace kavo {

class IdHash {
public:
    using Words = std::array<std::uint64_t, 3>;  // an id, filled up with zeros

    IdHash();  // with a key of its own

    // Nothing that leaves the process may depend on it. Zeros have the hash 0.
    std::uint32_t operator()(const Words& words) const {
        return static_cast<std::uint32_t>(mixed(words) ^ mixed_zeros_);
    }

private:
    // The words meet the key before they are multiplied with each other, and both halves of a product count. A sum of
    // words multiplied by secret odd numbers would not do: what changes the highest bits of two of them goes unseen.
    std::uint64_t mixed(const Words& words) const {
        return folded(folded(words[0] ^ key_[0], words[1] ^ key_[1]) ^ words[2], key_[2]);
    }
    static std::uint64_t folded(std::uint64_t one, std::uint64_t other) {
        __extension__ using Product = unsigned __int128;
        const Product product = Product{one} * other;
        return static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
    }

    Words key_{};
    std::uint64_t mixed_zeros_ = 0;
};

// The one behind all ids of this process. Whatever includes this is initialised after it.
inline const IdHash id_hash;

}  // namespace kavo

#include "engine/id_hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "engine/meo.h"

namespace kavo {
namespace {

using meo::ClientOrderId;

// Of so many ids, by chance, hardly ever two share a hash; these are more than chance will ever bring.
constexpr std::size_t many_ids = 60'000;
constexpr std::size_t most_shared = 20;

std::size_t distinct_hashes(const std::vector<std::string>& ids) {
    std::set<std::uint32_t> hashes;
    for (const std::string& id : ids) hashes.insert(ClientOrderId(id).hash);
    return hashes.size();
}

// The twenty bytes of an id, from the numbers that they stand for.
std::string id_of(std::uint64_t first, std::uint64_t second, std::uint32_t third) {
    std::string id(20, '\0');
    std::memcpy(id.data(), &first, 8);
    std::memcpy(id.data() + 8, &second, 8);
    std::memcpy(id.data() + 16, &third, 4);
    return id;
}

// A formula without a key, which anybody can solve.
namespace keyless {

constexpr std::uint64_t factors[] = {0x9E3779B97F4A7C15, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9};

std::uint32_t hash_of(const std::string& id) {
    std::uint64_t words[3] = {};
    std::memcpy(words, id.data(), id.size());
    std::uint64_t sum = words[0] * factors[0] + words[1] * factors[1] + words[2] * factors[2];
    sum ^= sum >> 32;
    return static_cast<std::uint32_t>(sum * factors[0] >> 32);
}

// The number whose product with an odd one is 1. Each step doubles the bits that are right; the first three are.
constexpr std::uint64_t inverse_of(std::uint64_t odd) {
    std::uint64_t inverse = odd;
    for (int step = 0; step < 5; ++step) inverse *= 2 - odd * inverse;
    return inverse;
}
static_assert(inverse_of(factors[0]) * factors[0] == 1);

// Whatever the rest of the id, its first word makes the sum what it should be. None of the ids has a NUL in it.
std::vector<std::string> ids_of_one_hash(std::size_t count) {
    constexpr std::uint64_t sum = 0x0123456789ABCDEF;
    std::vector<std::string> ids;
    for (std::uint64_t number = 0; ids.size() < count; ++number) {
        const std::uint64_t second = 0x4141414141414141 + number % 64 + number / 64 % 64 * 256 + number / 4096 * 65'536;
        const std::uint32_t third = 0x42424242;
        const std::uint64_t first = (sum - second * factors[1] - third * factors[2]) * inverse_of(factors[0]);
        const std::string id = id_of(first, second, third);
        if (std::ranges::count(id, '\0') == 0) ids.push_back(id);
    }
    return ids;
}

}  // namespace keyless

TEST(IdHash, SpreadsIdsMadeToShareTheHashOfAFormulaThatIsKnown) {
    const std::vector<std::string> ids = keyless::ids_of_one_hash(many_ids);
    ASSERT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), many_ids);
    for (const std::string& id : ids) ASSERT_EQ(keyless::hash_of(id), keyless::hash_of(ids.front()));
    EXPECT_GE(distinct_hashes(ids), many_ids - most_shared);
}

// Of a sum of words, each multiplied by an odd number, such a pair has the same, whatever the numbers are.
TEST(IdHash, TellsIdsApartThatDifferInTheHighestBitsOfTwoWords) {
    constexpr std::uint64_t highest = std::uint64_t{1} << 63;
    std::size_t shared = 0;
    for (std::uint64_t number = 0; number < many_ids; ++number) {
        const std::uint64_t first = 0x4141414141414141 + number;
        const std::uint64_t second = 0x4242424242424242;
        const ClientOrderId one(id_of(first, second, 0x43434343));
        const ClientOrderId other(id_of(first ^ highest, second ^ highest, 0x43434343));
        if (one.hash == other.hash) ++shared;
    }
    EXPECT_LE(shared, most_shared);
}

TEST(IdHash, SpreadsIdsThatDifferInOnePlaceOnly) {
    std::vector<std::string> ids;
    for (std::size_t at = 0; at < 20; ++at) {
        for (int letter = 1; letter < 256; ++letter) {
            std::string id(20, '-');
            id[at] = static_cast<char>(letter);
            if (letter != '-') ids.push_back(id);
        }
    }
    EXPECT_GE(distinct_hashes(ids), ids.size() - most_shared);
}

TEST(IdHash, SpreadsIdsThatCount) {
    std::vector<std::string> ids;
    for (std::size_t number = 0; number < many_ids; ++number) ids.push_back("order-" + std::to_string(number));
    EXPECT_GE(distinct_hashes(ids), many_ids - most_shared);
}

TEST(IdHash, GoesByAKeyOfItsOwn) {
    const IdHash one;
    const IdHash other;
    std::size_t shared = 0;
    for (std::uint64_t number = 1; number <= many_ids; ++number) {
        if (one({number, 0, 0}) == other({number, 0, 0})) ++shared;
    }
    EXPECT_LE(shared, most_shared);
}

TEST(IdHash, IsTheSameForAnIdThatWasNeverSetAndOneOfNoText) {
    EXPECT_EQ(ClientOrderId(), ClientOrderId(""));
    EXPECT_EQ(ClientOrderId().hash, ClientOrderId("").hash);
    EXPECT_EQ(IdHash()({0, 0, 0}), 0u);
}

}  // namespace
}  // namespace kavo

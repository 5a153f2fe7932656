// Client order ids whose hashes are the same. Each process hashes by a key of its own, so they have to be searched for.
#pragma once

#include <string>
#include <utility>

namespace kavo::test {

std::pair<std::string, std::string> two_ids_of_one_hash();

}  // namespace kavo::test

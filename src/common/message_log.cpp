#include "common/message_log.h"

#include <algorithm>
#include <cassert>

namespace kavo {

MutableBytes MessageLog::append(std::size_t size) {
    if (blocks_.empty() || blocks_.back().capacity - blocks_.back().used() < size) add_block(size);
    Block& block = blocks_.back();
    const std::size_t start = block.used();
    block.ends.push_back(static_cast<std::uint32_t>(start + size));
    ++next_;
    ++size_;
    return {block.bytes.get() + start, size};
}

// Blocks grow from small to large: most users never trade, and few bytes should wait for them.
void MessageLog::add_block(std::size_t size) {
    const std::size_t wanted = blocks_.empty() ? smallest_block_bytes : blocks_.back().capacity * 2;
    const std::size_t capacity = std::max(size, std::min(wanted, largest_block_bytes));
    blocks_.push_back({next_, capacity, std::make_unique_for_overwrite<std::uint8_t[]>(capacity), {}});
}

void MessageLog::trim(std::size_t limit) {
    size_ = std::min(size_, limit);
    const auto live = std::find_if(blocks_.begin(), blocks_.end(),
                                   [oldest = oldest()](const Block& block) { return block.next() > oldest; });
    if (live != blocks_.begin()) blocks_.erase(blocks_.begin(), live);
}

ByteView MessageLog::at(std::uint64_t number) const {
    assert(oldest() <= number && number < next_);
    const auto after = std::upper_bound(blocks_.begin(), blocks_.end(), number,
                                        [](std::uint64_t n, const Block& block) { return n < block.first; });
    const Block& block = *std::prev(after);
    const std::size_t index = number - block.first;
    const std::size_t start = index == 0 ? 0 : block.ends[index - 1];
    return {block.bytes.get() + start, block.ends[index] - start};
}

}  // namespace kavo

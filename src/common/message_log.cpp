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
    const std::uint64_t needed = kept_from_ == 0 ? oldest() : std::min(oldest(), kept_from_);
    const auto live =
        std::find_if(blocks_.begin(), blocks_.end(), [needed](const Block& block) { return block.next() > needed; });
    if (live != blocks_.begin()) blocks_.erase(blocks_.begin(), live);
}

ByteView MessageLog::at(std::uint64_t number) const {
    return run_at(number, number).bytes;
}

MessageLog::Run MessageLog::run_at(std::uint64_t number, std::uint64_t last) const {
    assert(number <= last && last < next_ && (oldest() <= number || (kept_from_ != 0 && kept_from_ <= number)));
    const Block& block = block_of(number);
    const std::uint64_t next = std::min(last + 1, block.next());
    const std::size_t start = block.start_of(number);
    return {{block.bytes.get() + start, block.start_of(next) - start}, next};
}

const MessageLog::Block& MessageLog::block_of(std::uint64_t number) const {
    const auto after = std::upper_bound(blocks_.begin(), blocks_.end(), number,
                                        [](std::uint64_t n, const Block& block) { return n < block.first; });
    return *std::prev(after);
}

}  // namespace kavo

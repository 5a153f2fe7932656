// Numbered messages, oldest first, without gaps: the history of the feed and the stream of a user are both one of
// these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/bytes.h"

namespace kavo {

// Messages lie back to back in blocks that never move, so a message stays where it is until it is trimmed, appending
// copies no other message, and no append takes longer than allocating one block. An empty log owns no memory.
class MessageLog {
public:
    // Room for one more message of `size` bytes, numbered next(); the caller fills all of it.
    MutableBytes append(std::size_t size);

    // Drops the oldest messages until at most `limit` are left.
    void trim(std::size_t limit);
    // Whoever still reads from this number on finds those messages there, even when they have been dropped meanwhile.
    // One reader at a time; 0 is none.
    void keep_from(std::uint64_t number) { kept_from_ = number; }

    // The message with this number, oldest() <= number < next(), or kept for its reader. Valid until it is trimmed.
    ByteView at(std::uint64_t number) const;

    // Messages that lie back to back: from this one on, up to `last` at most, as far as they lie in one block.
    struct Run {
        ByteView bytes;
        std::uint64_t next;  // the number of the first message that is not in it
    };
    Run run_at(std::uint64_t number, std::uint64_t last) const;

    std::uint64_t oldest() const { return next_ - size_; }
    std::uint64_t next() const { return next_; }  // the number that the next message will get; the first is 1
    std::size_t size() const { return size_; }
    std::size_t blocks() const { return blocks_.size(); }  // all the memory that it holds

private:
    struct Block {
        std::uint64_t first;  // number of its first message
        std::size_t capacity;
        std::unique_ptr<std::uint8_t[]> bytes;
        std::vector<std::uint32_t> ends;  // where each of its messages ends

        std::size_t used() const { return ends.empty() ? 0 : ends.back(); }
        std::uint64_t next() const { return first + ends.size(); }
        std::size_t start_of(std::uint64_t number) const { return number == first ? 0 : ends[number - first - 1]; }
    };
    static constexpr std::size_t smallest_block_bytes = 256;
    static constexpr std::size_t largest_block_bytes = 65'536;  // only a single longer message gets more

    void add_block(std::size_t size);
    const Block& block_of(std::uint64_t number) const;

    std::vector<Block> blocks_;  // about a thousand in the longest log; the front one may begin with trimmed messages
    std::uint64_t next_ = 1;
    std::size_t size_ = 0;
    std::uint64_t kept_from_ = 0;
};

}  // namespace kavo

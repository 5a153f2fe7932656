#include "common/message_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace kavo {
namespace {

// What message `number` looks like in these tests: both its bytes and where it starts tell it from its neighbours.
Bytes message_of(std::uint64_t number, std::size_t size) {
    Bytes message(size);
    for (std::size_t i = 0; i < size; ++i) message[i] = static_cast<std::uint8_t>(number * 31 + i);
    return message;
}

std::uint64_t append(MessageLog& log, std::size_t size) {
    const std::uint64_t number = log.next();
    const Bytes message = message_of(number, size);
    const MutableBytes room = log.append(size);
    EXPECT_EQ(room.size(), size);
    std::copy(message.begin(), message.end(), room.begin());
    return number;
}

bool holds(const MessageLog& log, std::uint64_t number, std::size_t size) {
    const ByteView message = log.at(number);
    const Bytes expected = message_of(number, size);
    return std::equal(message.begin(), message.end(), expected.begin(), expected.end());
}

// A size for every message number, between 0 and 299 bytes in no order.
std::size_t odd_size(std::uint64_t number) {
    return static_cast<std::size_t>(number * 7919 % 300);
}

TEST(MessageLog, StartsEmptyBeforeNumberOne) {
    const MessageLog log;
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(log.next(), 1u);
    EXPECT_EQ(log.oldest(), 1u);
}

TEST(MessageLog, NumbersMessagesFromOneWithoutGaps) {
    MessageLog log;
    EXPECT_EQ(append(log, 5), 1u);
    EXPECT_EQ(append(log, 3), 2u);
    EXPECT_EQ(append(log, 9), 3u);
    EXPECT_EQ(log.next(), 4u);
    EXPECT_EQ(log.oldest(), 1u);
    EXPECT_EQ(log.size(), 3u);
    EXPECT_TRUE(holds(log, 1, 5));
    EXPECT_TRUE(holds(log, 2, 3));
    EXPECT_TRUE(holds(log, 3, 9));
}

TEST(MessageLog, KeepsEmptyMessages) {
    MessageLog log;
    append(log, 0);
    append(log, 4);
    append(log, 0);
    EXPECT_EQ(log.at(1).size(), 0u);
    EXPECT_TRUE(holds(log, 2, 4));
    EXPECT_EQ(log.at(3).size(), 0u);
}

TEST(MessageLog, KeepsAnEmptyMessageBehindOneThatFillsItsBlock) {
    MessageLog log;
    append(log, 256);
    append(log, 0);
    append(log, 1);
    EXPECT_TRUE(holds(log, 1, 256));
    EXPECT_EQ(log.at(2).size(), 0u);
    EXPECT_TRUE(holds(log, 3, 1));
}

TEST(MessageLog, FindsEveryMessageAcrossManyBlocks) {
    MessageLog log;
    for (std::uint64_t number = 1; number <= 5000; ++number) append(log, odd_size(number));
    for (std::uint64_t number = 1; number <= 5000; ++number)
        ASSERT_TRUE(holds(log, number, odd_size(number))) << number;
}

TEST(MessageLog, FindsMessagesWhoseSizesFillEveryBlockToTheLastByte) {
    MessageLog log;
    for (int i = 0; i < 2000; ++i) append(log, 128);
    for (std::uint64_t number = 1; number <= 2000; ++number) ASSERT_TRUE(holds(log, number, 128)) << number;
}

TEST(MessageLog, TakesMessagesLargerThanAnyBlock) {
    MessageLog log;
    append(log, 10);
    append(log, 200'000);
    append(log, 20);
    append(log, 65'536);
    append(log, 65'537);
    append(log, 30);
    EXPECT_TRUE(holds(log, 1, 10));
    EXPECT_TRUE(holds(log, 2, 200'000));
    EXPECT_TRUE(holds(log, 3, 20));
    EXPECT_TRUE(holds(log, 4, 65'536));
    EXPECT_TRUE(holds(log, 5, 65'537));
    EXPECT_TRUE(holds(log, 6, 30));
}

TEST(MessageLog, NeverMovesAMessage) {
    MessageLog log;
    append(log, 100);
    const std::uint8_t* const first = log.at(1).data();
    for (int i = 0; i < 10'000; ++i) append(log, 100);
    EXPECT_EQ(log.at(1).data(), first);
    EXPECT_TRUE(holds(log, 1, 100));
}

TEST(MessageLog, StaysWhereItLiesWhenTheLogItselfMoves) {
    MessageLog log;
    append(log, 100);
    const std::uint8_t* const first = log.at(1).data();
    const MessageLog moved = std::move(log);
    EXPECT_EQ(moved.at(1).data(), first);
}

TEST(MessageLog, TrimsItsOldestMessages) {
    MessageLog log;
    for (std::uint64_t number = 1; number <= 100; ++number) append(log, odd_size(number));
    log.trim(30);
    EXPECT_EQ(log.size(), 30u);
    EXPECT_EQ(log.oldest(), 71u);
    EXPECT_EQ(log.next(), 101u);
    for (std::uint64_t number = 71; number <= 100; ++number)
        EXPECT_TRUE(holds(log, number, odd_size(number))) << number;
}

TEST(MessageLog, IsLeftAloneByALimitItDoesNotReach) {
    MessageLog log;
    for (int i = 0; i < 3; ++i) append(log, 8);
    log.trim(4);
    log.trim(3);
    EXPECT_EQ(log.oldest(), 1u);
    EXPECT_TRUE(holds(log, 1, 8));
}

TEST(MessageLog, GoesOnNumberingAfterItHasBeenEmptied) {
    MessageLog log;
    for (int i = 0; i < 200; ++i) append(log, 100);
    log.trim(0);
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(log.oldest(), 201u);
    EXPECT_EQ(append(log, 12), 201u);
    EXPECT_EQ(log.oldest(), 201u);
    EXPECT_TRUE(holds(log, 201, 12));
}

TEST(MessageLog, IgnoresATrimWhileItIsEmpty) {
    MessageLog log;
    log.trim(0);
    log.trim(10);
    EXPECT_EQ(append(log, 4), 1u);
    EXPECT_TRUE(holds(log, 1, 4));
}

TEST(MessageLog, HoldsItsLimitWhenItIsTrimmedAfterEveryMessage) {
    constexpr std::size_t limit = 150;
    MessageLog log;
    for (std::uint64_t number = 1; number <= 5000; ++number) {
        append(log, odd_size(number));
        log.trim(limit);
        ASSERT_EQ(log.size(), std::min<std::uint64_t>(number, limit));
        ASSERT_TRUE(holds(log, log.oldest(), odd_size(log.oldest()))) << number;
        ASSERT_TRUE(holds(log, number, odd_size(number))) << number;
    }
    EXPECT_EQ(log.oldest(), 4851u);
    for (std::uint64_t number = log.oldest(); number < log.next(); ++number) {
        ASSERT_TRUE(holds(log, number, odd_size(number))) << number;
    }
}

// The bytes of messages `first` to `last`, one after the other.
Bytes joined_messages(const MessageLog& log, std::uint64_t first, std::uint64_t last) {
    Bytes joined;
    for (std::uint64_t number = first; number <= last; ++number) {
        const ByteView message = log.at(number);
        joined.insert(joined.end(), message.begin(), message.end());
    }
    return joined;
}

TEST(MessageRun, IsOneMessageWhenNoMoreAreWanted) {
    MessageLog log;
    for (int i = 0; i < 3; ++i) append(log, 10);
    const MessageLog::Run run = log.run_at(2, 2);
    EXPECT_EQ(run.next, 3u);
    EXPECT_EQ(Bytes(run.bytes.begin(), run.bytes.end()), message_of(2, 10));
}

TEST(MessageRun, GoesAsFarAsWantedWithinABlock) {
    MessageLog log;
    for (int i = 0; i < 10; ++i) append(log, 10);
    const MessageLog::Run run = log.run_at(3, 7);
    EXPECT_EQ(run.next, 8u);
    EXPECT_EQ(Bytes(run.bytes.begin(), run.bytes.end()), joined_messages(log, 3, 7));
}

TEST(MessageLog, KeepsForAReaderWhatItForgetsMeanwhile) {
    MessageLog log;
    constexpr std::size_t size = 40'000;  // nearly every message has a block of its own
    const auto append = [&log] {
        const auto number = static_cast<std::uint8_t>(log.next());
        std::ranges::fill(log.append(size), number);
    };
    for (int i = 0; i < 10; ++i) append();
    log.keep_from(3);
    log.trim(2);
    EXPECT_EQ(log.oldest(), 9u);
    EXPECT_EQ(log.size(), 2u);
    for (std::uint64_t number = 3; number <= 10; ++number) {
        EXPECT_EQ(log.at(number).front(), number);
        EXPECT_EQ(log.at(number).back(), number);
    }
    log.keep_from(0);
    append();
    log.trim(2);
    EXPECT_EQ(log.oldest(), 10u);
    EXPECT_EQ(log.at(10).front(), 10);
}

TEST(MessageLog, GivesBackTheBlocksInWhichNothingIsLeft) {
    MessageLog log;
    EXPECT_EQ(log.blocks(), 0u);
    for (int i = 0; i < 10; ++i) append(log, 40'000);  // a block has no room for two of them
    EXPECT_EQ(log.blocks(), 10u);
    log.keep_from(3);
    log.trim(2);
    EXPECT_EQ(log.blocks(), 8u);
    log.keep_from(0);
    log.trim(2);
    EXPECT_EQ(log.blocks(), 2u);
    for (int i = 0; i < 1'000; ++i) {
        append(log, 40'000);
        log.trim(2);
        ASSERT_EQ(log.blocks(), 2u);
    }
}

TEST(MessageRun, StopsAtTheEndOfABlock) {
    MessageLog log;
    for (int i = 0; i < 9; ++i) append(log, 64);  // a first block of 256 bytes takes four of them
    const MessageLog::Run run = log.run_at(2, 9);
    EXPECT_EQ(run.next, 5u);
    EXPECT_EQ(Bytes(run.bytes.begin(), run.bytes.end()), joined_messages(log, 2, 4));
}

TEST(MessageRun, GoesOnWhereTheOneBeforeItStopped) {
    MessageLog log;
    for (std::uint64_t number = 1; number <= 3000; ++number) append(log, odd_size(number));
    log.trim(2500);
    Bytes joined;
    std::uint64_t next = 700;
    while (next <= 2900) {
        const MessageLog::Run run = log.run_at(next, 2900);
        ASSERT_GT(run.next, next);
        joined.insert(joined.end(), run.bytes.begin(), run.bytes.end());
        next = run.next;
    }
    EXPECT_EQ(next, 2901u);
    EXPECT_TRUE(joined == joined_messages(log, 700, 2900));
}

TEST(MessageLog, StartsAtTwoOnceItsLimitIsPassedByOne) {
    constexpr std::size_t limit = 200'000;
    MessageLog log;
    for (std::uint64_t number = 1; number <= limit; ++number) {
        log.append(1)[0] = static_cast<std::uint8_t>(number);
        log.trim(limit);
    }
    EXPECT_EQ(log.oldest(), 1u);
    log.append(1)[0] = static_cast<std::uint8_t>(limit + 1);
    log.trim(limit);
    EXPECT_EQ(log.oldest(), 2u);
    EXPECT_EQ(log.next(), 200'002u);
    EXPECT_EQ(log.at(2)[0], 2u);
    EXPECT_EQ(log.at(200'001)[0], 0x41u);  // 200001 is 0x30D41
}

}  // namespace
}  // namespace kavo

// Messages printed in order, each with the book that it changed. What is missing is marked and fetched again. A book is
// shown only while everything before it is known, from a refresh or from the first message on; while the books are
// unknown, messages are printed as they arrive, and it is said why.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "client/feed_messages.h"
#include "client/feed_receiver.h"
#include "common/bytes.h"
#include "kavo/screen/arrivals.h"
#include "kavo/screen/feed_lines.h"

namespace kavo::companion {

class Books {
public:
    //   retrans_port  of the service on 127.0.0.1 that tells what was missed; 0: there is none
    Books(FeedLines& lines, std::uint16_t retrans_port) : lines_(lines), retrans_port_(retrans_port) {}

    void take(ByteView datagram);
    // Nothing has come for a moment: what is missing will not come by itself any more.
    void pause();

private:
    void begin(const client::FeedPacket& packet);
    void join(const client::FeedPacket& packet);
    void doubt();
    void check_service(const client::FeedPacket& packet) const;
    void know();
    void start_from_snapshot();
    void recover();
    std::runtime_error another_feed() const;
    void follow(const std::function<void()>& step);
    void forget(const std::string& reason);
    void say_unknown(const std::string& reason);
    void show(std::uint64_t sequence, std::uint32_t changed);
    void show_snapshot(std::uint64_t as_of);

    FeedLines& lines_;
    std::uint16_t retrans_port_;
    std::optional<client::FeedReceiver> receiver_;  // none while the books are unknown
    Arrivals arrivals_{lines_};
    std::uint64_t gap_first_ = 0;  // the latest gap
    std::uint64_t gap_last_ = 0;
    unsigned doubts_ = 0;  // refreshes in a row that were not taken
    std::string reason_;   // said last, for which the books are unknown
    std::chrono::steady_clock::time_point next_attempt_;
};

}  // namespace kavo::companion

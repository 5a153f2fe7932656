// What `kavo feed` prints: packets of the feed in plain words, and remarks that stand out from them; or each of them as
// a line of JSON.
//
// A line of JSON says when it was heard ("t", wall-clock nanoseconds) and what it is ("ev"):
//   start      session                    a new session begins
//   heartbeat  last                       number of the last message
//   time, state, definition, open, status, add, modify, delete, executed, unknown: a message under its number "seq",
//              with its fields as feed_json.h tells, and a "note" when it came in another way than by itself in order:
//              "out of order" or "fetched again"
//   book       seq, secid, symbol, bids, asks    as of a message; up to ten [price, quantity] a side, best first
//   gap        first, last                what is missing
//   refresh    as_of                      the books that follow are known as of this message
//   no_books   reason                     from here on no book is known
//   restart                               the numbers have fallen back: the simulator has begun again
//   silence    text                       nothing has been heard for long
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "client/received_book.h"
#include "common/bytes.h"
#include "feed/mach.h"

namespace kavo::companion {

class FeedLines {
public:
    // Which messages are shown: those from a number on, and so many of them at most.
    struct Window {
        std::uint64_t from = 0;
        std::uint64_t count = ~std::uint64_t{0};
    };
    FeedLines(bool json, Window window) : json_(json), window_(window) {}

    // What follows was heard at this moment.
    void heard_at(std::uint64_t t_ns) { t_ns_ = t_ns; }

    //   note  how the message came, or nothing
    void message(std::uint64_t sequence, ByteView message, const std::string& note = {});
    // A start or a heartbeat; nothing for a packet that carries a message.
    void bare(const mach::Header& header);
    // The book behind the message that was told last, or as of a refresh.
    void book(std::uint64_t sequence, std::uint32_t secid, const client::ReceivedBook& books);

    void gap(std::uint64_t first, std::uint64_t last);
    void refresh(std::uint64_t as_of);
    void no_books(const std::string& reason);
    void fallen_back();
    void silence();

    // True when as many messages have been shown as were asked for.
    bool done() const { return shown_ >= window_.count; }

private:
    void remark(const char* event, const std::string& text, const nlohmann::ordered_json& fields);
    void print(const char* event, const nlohmann::ordered_json& fields) const;

    bool json_;
    Window window_;
    std::uint64_t t_ns_ = 0;
    std::uint64_t shown_ = 0;
    bool open_ = true;  // what was told last was shown, so its books are as well
};

}  // namespace kavo::companion

// A run as a story: who said what to whom, and when, in the order in which it passed.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

// One thing that happened. Texts are as they came, so anything at all may be in them.
struct StoryEntry {
    enum class Kind { opened, closed, packet, feed, venue_line, note };
    Kind kind = Kind::packet;
    Moment at = {};
    std::string user = {};  // whose connection it is; empty for what is nobody's
    bool by_user = false;   // said by the client's side
    std::string what = {};  // in plain words, after the style of transcript.h
    std::string why = {};   // of a rejection or an end, in words
    bool rejected = false;
    // What it is about, where it says so.
    std::string order = {};     // client order id
    std::string original = {};  // the one before, of a replace or a cancel
    std::uint64_t order_id = 0;
    std::uint64_t stream_number = 0;
    std::uint64_t feed_number = 0;
};

struct StoryWishes {
    std::optional<std::string> user = {};   // what this user said and heard
    std::optional<std::string> order = {};  // the life of this order, under all its ids, on order entry and on the feed
    std::optional<std::pair<std::uint64_t, std::uint64_t>> feed = {};  // messages of the feed, first to last
    std::uint64_t from_ns = 0;
    std::uint64_t to_ns = UINT64_MAX;
    bool rejected = false;  // what was rejected, and nothing else
    bool all = false;       // heartbeats, and the whole feed, as well
};

// Calls `tell` with each entry that is wished for. Nothing but wishes for the feed brings the feed's messages, since
// there are so many.
void tell_story(const Journal& journal, const StoryWishes& wishes,
                const std::function<void(const StoryEntry& entry)>& tell);

}  // namespace kavo::companion

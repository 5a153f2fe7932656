// What kavo noted of the machine and of the scene, as far as it speaks for or against a client: when the machine was
// late, what the kernel threw away, which sockets listened to the feed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

struct FeedCircumstances {
    struct Spell {  // in which the machine let somebody wait
        std::uint64_t from_ns = 0;
        std::uint64_t to_ns = 0;
    };
    struct FeedSocket {                  // of a client, as kavo saw it when it looked
        std::uint64_t not_there_ns = 0;  // the last look before it was there
        std::uint64_t seen_ns = 0;       // the first at which it was
        std::uint64_t last_seen_ns = 0;  // and the last; 0 for to the end
        std::string name;                // whatever tells it from others
    };

    std::vector<Spell> late;
    std::uint64_t kernel_drops_of_kavo = 0;  // datagrams of the feed
    std::uint64_t kernel_drops_of_clients = 0;
    // Only a bench that watches them tells; without a word about any, nothing is known.
    std::vector<FeedSocket> sockets;
    bool sockets_are_watched = false;
    std::uint64_t ended_ns =
        0;  // when the client's command or the venue ended, whichever was first; 0 when neither did

    bool was_late(std::uint64_t from_ns, std::uint64_t to_ns) const;
    // A socket may have been opened in that time.
    bool socket_opened(std::uint64_t from_ns, std::uint64_t to_ns) const;
    // One and the same socket was there all the time, and no other ever beside it: whose each of two is, nobody knows.
    bool socket_open(std::uint64_t from_ns, std::uint64_t to_ns) const;
};

// A note that cannot be read is passed over.
FeedCircumstances feed_circumstances(const Journal& journal);

}  // namespace kavo::companion

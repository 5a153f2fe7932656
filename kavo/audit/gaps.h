// Where the feed had holes: numbers that did not come when it was their turn. Kavo listens beside the client, on the
// same group, so what it received the client was sent as well; and the venue says what it dropped or held back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/audit/feed_circumstances.h"
#include "kavo/basics/number_ranges.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

enum class Loss {
    dropped,      // the bench says so
    held,         // held back by the bench, and never released, or overwritten
    late,         // came behind a later one, so nothing is lost
    kernel,       // kavo's own copy, thrown away by the kernel
    unexplained,  // nobody says why
};

struct Gap {
    SequenceRange numbers;
    Loss loss = Loss::unexplained;
    Moment shown;               // the datagram that shows it
    bool by_heartbeat = false;  // and that is a heartbeat
    // When the order of datagrams heals nothing any more, by anyone's patience: the first heartbeat behind it, or the
    // third datagram with something new. 0 when the feed ends before.
    std::uint64_t settled_ns = 0;
    Moment came;  // of what came late

    // The client cannot have had it either.
    bool lost() const { return loss == Loss::dropped || loss == Loss::held; }
};

// The feed of a run, as a receiver of its datagrams knows it.
struct FeedPicture {
    std::vector<Gap> gaps;  // by number
    std::uint64_t highest = 0;
    bool began_again = false;  // numbers fell back: another process, or a broken venue
    struct Arrival {
        SequenceRange numbers;
        std::uint64_t ns = 0;
    };
    std::vector<Arrival> arrivals;  // of what came in its turn, ascending

    // When the message with this number, or the first behind it, came in its turn; 0 when none did.
    std::uint64_t came_ns(std::uint64_t number) const;
};

FeedPicture picture_of_feed(const Journal& journal, const FeedCircumstances& around);

std::string_view name_of(Loss loss);

}  // namespace kavo::companion

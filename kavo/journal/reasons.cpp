#include "kavo/journal/reasons.h"

#include <array>

namespace kavo::companion {

namespace {

struct Reason {
    std::string_view type;
    char letter;
    std::string_view words;
};

constexpr std::array reasons{
    Reason{"NR", 'S', "there is no such product"},
    Reason{"NR", 'O', "it has no client order id"},
    Reason{"NR", 'I', "the participant is not exactly four characters"},
    Reason{"NR", 'K', "the quantity is 0"},
    Reason{"NR", 'M', "the quantity is above --max-order-size"},
    Reason{"NR", 'T', "the order type is unknown"},
    Reason{"NR", 'J', "the price of a limit order must be a whole number of cents above 0, of a market order 0"},
    Reason{"NR", 'b', "the time in force is unknown"},
    Reason{"NR", '@', "a timed order must expire in the future, and no other may have an expire time"},
    Reason{"NR", 'V', "a sell needs a short-sale type, and a buy must have none"},
    Reason{"NR", 'A', "the client order id is that of a live order"},
    Reason{"NR", 'R', "scripted: the scenario or a command asked for it"},
    Reason{"MR", 'D', "the client has no live order of that id"},
    Reason{"MR", 'A', "the new client order id is that of a live order"},
    Reason{"MR", 'Q', "the participant is not that of the order"},
    Reason{"MR", 'J', "the price must be a whole number of cents above 0"},
    Reason{"MR", 'K', "the quantity is 0"},
    Reason{"MR", 'H', "scripted: the scenario or a command asked for it"},
    Reason{"CR", 'D', "the client has no live order of that id, or the cancel came too late"},
    Reason{"CR", 'Q', "the participant is not that of the order"},
    Reason{"CR", 'S', "the product is not that of the order"},
    Reason{"XN", 'E', "post-only, and it would have taken liquidity"},
    Reason{"XN", 'C', "what did not trade at once has expired"},
    Reason{"XN", 'U', "the client asked for it"},
    Reason{"XN", 'D', "its connection went away"},
    Reason{"XN", 'H', "unsolicited: the scenario or a command asked for it"},
};

}  // namespace

std::string_view reason_in_words(std::string_view type, char letter) {
    for (const Reason& reason : reasons) {
        if (reason.type == type && reason.letter == letter) return reason.words;
    }
    return {};
}

}  // namespace kavo::companion

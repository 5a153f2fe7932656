// orders.jsonl, read back. The venue writes the texts of clients as they are, so what looks like a line of JSON is
// none: an id may hold quotes, line ends, or what looks like the next key. A line is therefore read by what the venue
// always writes, in its order, and by the longest that each text can be; of all such readings the one counts that ends
// where the next line begins.
#pragma once

#include <string_view>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

struct OrderTruth {
    std::vector<OrderLine> lines;
    bool broken = false;          // something follows the last of them that is no line of the venue's
    std::size_t broken_line = 0;  // where it stands, from 1
};

//   content  lends all texts of the lines
//   symbols  those that the venue trades; none when they are not known
OrderTruth read_order_truth(std::string_view content, const std::vector<std::string>& symbols);

}  // namespace kavo::companion

// The command line: every flag with its default, the two values that have a structure of their own, and the banner.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/commentary.h"
#include "engine/settings.h"

namespace kavo {

struct Options {
    std::string mcast = "233.54.28.111";  // IPv4 dotted quad, like `iface`; neither is checked
    std::uint16_t port = 25377;
    std::string iface = "127.0.0.1";
    std::uint16_t retrans_port = 25379;  // 0: no retransmission service
    std::uint16_t meo_port = 28700;
    int session = 1;  // 1..255
    std::string symbols = "AAPL:190.00,MSFT:410.00,SPY:520.00";
    std::int32_t interval_ms = EngineSettings{}.interval_ms;
    double step_bps = EngineSettings{}.step_bps;
    double touch_hit = EngineSettings{}.touch_hit;
    std::string book_out;  // paths; empty is none
    std::string bbo_out;
    std::uint32_t seed = 42;
    std::uint32_t drop_every = 0;
    std::string drop_burst;  // "start" or "start:count", datagram numbers
    std::uint32_t dup_every = 0;
    std::uint32_t reorder_every = 0;
    std::string truth_out;
    std::uint16_t control_port = 0;  // 0: no control port
    bool acod = false;
    std::uint32_t max_order_size = EngineSettings{}.max_order_size;
    bool quiet = false;

    // What the environment says instead of a flag.
    std::string order_truth;  // path; empty is none
    std::string scenario;     // see Bench; empty is none

    std::uint8_t session_number() const { return static_cast<std::uint8_t>(session); }
};

// Reads the arguments behind the program's name. On a bad one prints what is wrong and gives nothing: the process ends
// with status 2. A malformed number is not caught: it ends the process with the conversion's own error, deliberately.
std::optional<Options> parse_options(std::span<const char* const> arguments, const Commentary& commentary);

struct SymbolItem {
    std::string name;          // may be empty, may come twice
    double reference = 100.0;  // currency units
};
// The items of a symbol list, "NAME:PRICE" or "NAME", in the order written. A price that is no number throws what the
// standard conversions throw.
std::vector<SymbolItem> parse_symbols(const std::string& text);

struct DropBurst {
    std::uint64_t start = 0;  // first datagram
    std::uint32_t count = 0;
};
// "START:COUNT" or "START", which is one datagram; an empty text is no burst. Throws like parse_symbols.
DropBurst parse_drop_burst(const std::string& text);

void say_banner(const Options& options, const Commentary& commentary);

}  // namespace kavo

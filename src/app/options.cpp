#include "app/options.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kavo {

namespace {

// Wider than what is kept of them, as the standard conversions are: 65536 is port 0, and -1 the largest count.
std::uint16_t to_port(const std::string& value) {
    return static_cast<std::uint16_t>(std::stoi(value));
}
std::uint32_t to_count(const std::string& value) {
    return static_cast<std::uint32_t>(std::stoul(value));
}

struct Flag {
    std::string_view name;
    void (*store)(Options& options, const std::string& value);
    bool takes_value = true;
};

constexpr auto flags = std::to_array<Flag>({
    {"--mcast", [](Options& o, const std::string& v) { o.mcast = v; }},
    {"--port", [](Options& o, const std::string& v) { o.port = to_port(v); }},
    {"--iface", [](Options& o, const std::string& v) { o.iface = v; }},
    {"--retrans-port", [](Options& o, const std::string& v) { o.retrans_port = to_port(v); }},
    {"--meo-port", [](Options& o, const std::string& v) { o.meo_port = to_port(v); }},
    {"--session", [](Options& o, const std::string& v) { o.session = std::stoi(v); }},
    {"--symbols", [](Options& o, const std::string& v) { o.symbols = v; }},
    {"--interval-ms", [](Options& o, const std::string& v) { o.interval_ms = std::stoi(v); }},
    {"--step-bps", [](Options& o, const std::string& v) { o.step_bps = std::stod(v); }},
    {"--touch-hit", [](Options& o, const std::string& v) { o.touch_hit = std::stod(v); }},
    {"--book-out", [](Options& o, const std::string& v) { o.book_out = v; }},
    {"--bbo-out", [](Options& o, const std::string& v) { o.bbo_out = v; }},
    {"--seed", [](Options& o, const std::string& v) { o.seed = to_count(v); }},
    {"--drop-every", [](Options& o, const std::string& v) { o.drop_every = to_count(v); }},
    {"--drop-burst", [](Options& o, const std::string& v) { o.drop_burst = v; }},
    {"--dup-every", [](Options& o, const std::string& v) { o.dup_every = to_count(v); }},
    {"--reorder-every", [](Options& o, const std::string& v) { o.reorder_every = to_count(v); }},
    {"--truth-out", [](Options& o, const std::string& v) { o.truth_out = v; }},
    {"--control-port", [](Options& o, const std::string& v) { o.control_port = to_port(v); }},
    {"--acod", [](Options& o, const std::string&) { o.acod = true; }, false},
    {"--max-order-size", [](Options& o, const std::string& v) { o.max_order_size = to_count(v); }},
    {"--quiet", [](Options& o, const std::string&) { o.quiet = true; }, false},
});

}  // namespace

std::optional<Options> parse_options(std::span<const char* const> arguments, const Commentary& commentary) {
    Options options;
    while (!arguments.empty()) {
        const char* name = arguments.front();
        const auto flag = std::find_if(flags.begin(), flags.end(), [&](const Flag& f) { return f.name == name; });
        if (flag == flags.end()) {
            commentary.say("unknown flag %s\n", name);
            return std::nullopt;
        }
        arguments = arguments.subspan(1);
        if (!flag->takes_value) {
            flag->store(options, {});
            continue;
        }
        if (arguments.empty()) {
            commentary.say("%s needs a value\n", name);
            return std::nullopt;
        }
        flag->store(options, arguments.front());
        arguments = arguments.subspan(1);
    }
    if (options.session < 1 || options.session > 255) {
        commentary.say("--session must be 1..255 (MACH §2.2.1)\n");
        return std::nullopt;
    }
    return options;
}

std::vector<SymbolItem> parse_symbols(const std::string& text) {
    std::vector<SymbolItem> items;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const std::string item = text.substr(start, comma - start);
        const std::size_t colon = item.find(':');
        SymbolItem& symbol = items.emplace_back();
        symbol.name = item.substr(0, colon);
        if (colon != std::string::npos) symbol.reference = std::stod(item.substr(colon + 1));
        start = comma + 1;
    }
    return items;
}

DropBurst parse_drop_burst(const std::string& text) {
    if (text.empty()) return {};
    const std::size_t colon = text.find(':');
    DropBurst burst{std::stoull(text.substr(0, colon)), 1};
    if (colon != std::string::npos) burst.count = to_count(text.substr(colon + 1));
    return burst;
}

void say_banner(const Options& options, const Commentary& commentary) {
    commentary.say(
        "[kavo_me] DoM/MACH %s:%u (iface %s, session %u, retransmission ESesM/TCP :%u) · MEO/ESesM :%u · ACOD "
        "%s · max order size %u · %s\n",
        options.mcast.c_str(), options.port, options.iface.c_str(), static_cast<unsigned>(options.session),
        options.retrans_port, options.meo_port,
        options.acod ? "cancel all open orders" : "do not cancel (venue default)", options.max_order_size,
        options.symbols.c_str());
}

}  // namespace kavo

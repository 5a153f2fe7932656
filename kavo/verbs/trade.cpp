#include <CLI/CLI.hpp>
#include <memory>

#include "kavo/screen/environment.h"
#include "kavo/screen/orders_by_hand.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* trade_examples =
    "Examples:\n"
    "  kavo trade --user alice                    and then: buy b1 100 189.95\n"
    "  kavo trade --user alice --from 1           with everything that alice has ever been told first\n"
    "  printf 'buy b1 100 189.95\\nwait 5\\n' | kavo trade --json | jq -c 'select(.type == \"E1\")'\n"
    "On a terminal the arrow keys bring earlier lines back. Ctrl-D logs out.\n"
    "Where no option says otherwise, KAVO_ORDERS (127.0.0.1:PORT) does.";

struct TradeOptions {
    std::optional<std::uint16_t> port;
    TradeWishes wishes;
};

}  // namespace

void add_trade(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("trade", "send orders by hand, and see every answer");
    verb->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto options = std::make_shared<TradeOptions>();
    TradeWishes& wishes = options->wishes;
    verb->add_option("--port,--meo-port", options->port, "TCP port of order entry on 127.0.0.1 (28700)");
    verb->add_option("--user", wishes.user, "who logs in, up to five letters")->capture_default_str();
    verb->add_option("--from", wishes.from, "first message of the stream; 1 for all of it, 0 for what is new");
    verb->add_option("--mpid", wishes.mpid, "of every request")->capture_default_str();
    verb->add_option("--computer", wishes.computer, "of the login")->capture_default_str();
    verb->add_option("--symbol", wishes.symbol, "of orders that name none: number or name")->capture_default_str();
    verb->add_flag("--json", wishes.json, "what is sent and heard as a JSON object a line, see docs/by_hand.md");
    verb->footer(std::string("Commands, one a line:\n") + trade_commands + trade_examples);
    verb->callback([&action, options] {
        action = [options] {
            options->wishes.port = port_or(options->port, "KAVO_ORDERS", options->wishes.port);
            trade_by_hand(options->wishes);
            return Status::right;
        };
    });
}

}  // namespace kavo::companion

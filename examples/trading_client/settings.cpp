#include "settings.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace trading {

namespace {

constexpr const char* help = R"(trading_client [--user NAME] [--seconds N] [--orders N] [--refresh-only] [--fault NAME]
trading_client --faults

Trades for a while, and tells what it believes. Where to connect is in the environment:

  KAVO_ORDERS      order entry, 127.0.0.1:PORT
  KAVO_FEED        the feed, GROUP:PORT
  KAVO_IFACE       address of the interface on which the group is joined
  KAVO_RECOVERY    the retransmission service, 127.0.0.1:PORT
  KAVO_SYMBOLS     names of what to trade, separated by commas; all if it is not set
  KAVO_CLIENT_LOG  where to write what it believes; nowhere if it is not set

  kavo test -- trading_client --seconds 3
  kavo test -- trading_client --fault skips-gaps
)";

double number(std::string_view text) {
    double value = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec != std::errc{} || read.ptr != text.data() + text.size() || value < 0) {
        throw std::invalid_argument("no number: " + std::string(text));
    }
    return value;
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void read_address(const char* variable, Address& address) {
    const std::string text = environment(variable);
    if (text.empty()) return;
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) throw std::invalid_argument(std::string(variable) + " is not HOST:PORT: " + text);
    address = {text.substr(0, colon), static_cast<std::uint16_t>(number(text.substr(colon + 1)))};
}

void read_environment(Settings& settings) {
    read_address("KAVO_ORDERS", settings.orders);
    read_address("KAVO_FEED", settings.feed);
    read_address("KAVO_RECOVERY", settings.recovery);
    if (const std::string given = environment("KAVO_IFACE"); !given.empty()) settings.interface_address = given;
    settings.beliefs = environment("KAVO_CLIENT_LOG");
    std::istringstream names(environment("KAVO_SYMBOLS"));
    for (std::string name; std::getline(names, name, ',');) settings.symbols.push_back(name);
}

void print_faults() {
    for (const FaultName& fault : all_faults()) {
        std::printf("%-38s %s\n", fault.name.data(), fault.sentence.data());
    }
}

}  // namespace

bool Settings::trades(const std::string& symbol) const {
    return symbols.empty() || std::ranges::find(symbols, symbol) != symbols.end();
}

std::optional<Settings> read_settings(int count, char** words) {
    Settings settings;
    read_environment(settings);
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        const auto value = [&] {
            if (++i == count) throw std::invalid_argument(std::string(word) + " needs a value");
            return std::string_view(words[i]);
        };
        if (word == "--help") {
            std::fputs(help, stdout);
            return std::nullopt;
        }
        if (word == "--faults") {
            print_faults();
            return std::nullopt;
        }
        if (word == "--user") {
            settings.user = value();
        } else if (word == "--seconds") {
            settings.trading_ms = static_cast<std::uint64_t>(number(value()) * 1000);
        } else if (word == "--orders") {
            settings.orders_at_most = static_cast<unsigned>(number(value()));
        } else if (word == "--refresh-only") {
            settings.refresh_only = true;
        } else if (word == "--fault") {
            settings.fault = fault_named(value());
        } else {
            throw std::invalid_argument("unknown option " + std::string(word) + "; see --help");
        }
    }
    return settings;
}

}  // namespace trading

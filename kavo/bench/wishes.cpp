#include "kavo/bench/wishes.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <cstdlib>
#include <memory>
#include <set>

#include "kavo/basics/problem.h"
#include "kavo/bench/vocabulary.h"

namespace kavo::companion {

namespace {

constexpr const char* default_symbols = "AAPL:190.00,MSFT:410.00,SPY:520.00";

[[noreturn]] void refuse(const std::string& sentence) {
    throw Problem(Status::usage, sentence);
}

const Word& flag_named(const std::string& name) {
    const Word* flag = find(simulator_flags(), name);
    if (flag == nullptr) {
        refuse("kavo_me has no flag " + name + "." + suggestion(simulator_flags(), name) +
               " A flag and its value are two words, and docs/bench.md lists all flags.");
    }
    if (!flag->own.empty()) refuse(name + " is the bench's own: " + std::string(flag->own) + ". Leave it out.");
    return *flag;
}

void keep(const std::string& flag, const std::string& value, BenchFacts& facts) {
    if (flag == "--mcast") facts.group = value;
    if (flag == "--iface") facts.interface_address = value;
    if (flag == "--seed") facts.seed = static_cast<std::uint32_t>(std::stoul(value));
    if (flag == "--session") facts.session = static_cast<std::uint8_t>(std::stoul(value));
    if (flag == "--max-order-size") facts.max_order_size = static_cast<std::uint32_t>(std::stoul(value));
    if (flag == "--symbols") facts.symbols = symbol_names(value);
    if (flag == "--acod") facts.acod = true;
}

// A line feed would begin a new line in the venue's log.
std::string shown(const std::string& text) {
    return "'" + text + "'";
}

}  // namespace

void read_flags(const std::vector<std::string>& flags, BenchFacts& facts) {
    facts.group = "233.54.28.111";
    facts.interface_address = "127.0.0.1";
    facts.symbols = symbol_names(default_symbols);
    for (std::size_t i = 0; i < flags.size(); ++i) {
        const Word& flag = flag_named(flags[i]);
        if (flag.kind == Kind::on_off) {
            keep(flags[i], "", facts);
            continue;
        }
        if (i + 1 == flags.size()) refuse(flags[i] + " needs a value: write it as the next word.");
        const std::string& value = flags[i + 1];
        const std::string wrong = wrong_with(flag.kind, value);
        if (!wrong.empty()) refuse(flags[i] + ": " + shown(value) + " " + wrong + ".");
        keep(flags[i], value, facts);
        ++i;
    }
}

void check_scenario(const std::string& scenario) {
    std::set<std::string> seen;
    for (std::size_t start = 0; start < scenario.size();) {
        const std::size_t comma = std::min(scenario.find(',', start), scenario.size());
        const std::string item = scenario.substr(start, comma - start);
        start = comma + 1;
        const std::size_t equals = item.find('=');
        if (equals == std::string::npos) {
            refuse("scenario: " + shown(item) + " has no '='. Write a list as in name=rough,reject_every=7.");
        }
        const std::string key = item.substr(0, equals);
        const Word* known = find(scenario_keys(), key);
        if (known == nullptr) {
            refuse("scenario: there is no key " + shown(key) + "." + suggestion(scenario_keys(), key) +
                   " docs/bench.md lists all keys.");
        }
        if (!seen.insert(key).second) refuse("scenario: " + shown(key) + " is given twice. Leave one out.");
        const std::string value = item.substr(equals + 1);
        const std::string wrong = wrong_with(known->kind, value);
        if (!wrong.empty()) refuse("scenario: " + key + ": " + shown(value) + " " + wrong + ".");
    }
}

void check_environment() {
    const auto refuse_if_set = [](const char* variable, const char* instead) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') return;
        refuse(std::string("the environment sets ") + variable + ", which is the bench's own: " + instead);
    };
    refuse_if_set("KAVO_ME_SCENARIO", "unset it, and give the scenario with --scenario.");
    refuse_if_set("BENCH_ORDER_TRUTH", "unset it; the truth of the orders is orders.jsonl in the run's folder.");
}

void check_interface(const std::string& address) {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) return;  // the socket that joins the group tells then
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(first, freeifaddrs);
    std::string others;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr, text, sizeof text);
        const bool up = (entry->ifa_flags & IFF_UP) != 0;
        if (address == text && up) return;
        if (address == text) {
            throw Problem(Status::bench, std::string("the interface ") + entry->ifa_name + " with address " + address +
                                             " is down: bring it up, or give --iface the address of another.");
        }
        if (up) others += (others.empty() ? "" : ", ") + std::string(text) + " (" + entry->ifa_name + ")";
    }
    throw Problem(Status::bench, "no interface of this machine has the address " + address +
                                     ", which --iface names: there are " + (others.empty() ? "none" : others) + ".");
}

}  // namespace kavo::companion

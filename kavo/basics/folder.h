// The folder of a run: which files lie in it, and what bench.json says. The same for every verb.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kavo::companion {

struct RunFolder {
    std::filesystem::path path;

    std::filesystem::path bench() const { return path / "bench.json"; }     // what was started, and where it listens
    std::filesystem::path log() const { return path / "kavo.jsonl"; }       // what kavo itself did and saw, with times
    std::filesystem::path venue_log() const { return path / "venue.log"; }  // standard error of the venue, with times
    std::filesystem::path order_truth() const { return path / "orders.jsonl"; }
    std::filesystem::path book_truth() const { return path / "books.jsonl"; }
    std::filesystem::path wire() const { return path / "wire.pcapng"; }      // every datagram, every byte over TCP
    std::filesystem::path beliefs() const { return path / "client.jsonl"; }  // what the client believed, if it tells
    std::filesystem::path verdict(const std::string& ending) const { return path / ("verdict." + ending); }
};

// What is in bench.json. All ports are of 127.0.0.1.
struct BenchFacts {
    std::string version;               // of kavo
    std::int64_t pid = 0;              // of the venue
    std::uint64_t started_ns = 0;      // wall clock
    std::vector<std::string> command;  // the venue with all its flags
    std::uint32_t seed = 42;
    std::string scenario;  // KAVO_ME_SCENARIO
    std::uint8_t session = 1;
    std::string group;  // of the feed
    std::string interface_address;
    std::uint16_t feed_port = 0;
    std::uint16_t orders_port = 0;  // where clients connect: the relay listens here
    std::uint16_t recovery_port = 0;
    std::uint16_t orders_behind_port = 0;  // where the venue listens, behind the relay
    std::uint16_t recovery_behind_port = 0;
    std::uint16_t control_port = 0;
    bool acod = false;  // --acod
    std::uint32_t max_order_size = 25'000;
    std::vector<std::string> symbols;  // names, in the order of their product ids from 1
    std::string house = "HOUSE";       // the user of kavo's own orders, whom nobody judges
    std::string enter;  // words to put before a command that is to see these ports; empty: any command of this machine
};

void write_facts(const BenchFacts& facts, const std::filesystem::path& file);
// Throws Problem when the file is missing or is no bench.json.
BenchFacts read_facts(const std::filesystem::path& file);
// All facts as one line of JSON, as `kavo run` prints them, with the path of the folder and of each file in it.
std::string facts_line(const BenchFacts& facts, const RunFolder& folder);

}  // namespace kavo::companion

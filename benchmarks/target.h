// A server under load, as a process of its own: the simulator, or the floor under it.
#pragma once

#include <string>

#include "client/feed_reader.h"
#include "support/process.h"

namespace kavo::benchmarks {

enum class ServerKind {
    plain_floor,     // pushes every answer
    request_floor,   // the answers to a request leave together
    batching_floor,  // so do those to requests that came together, as with the simulator
    simulator,
};

struct ServerSettings {
    ServerKind kind = ServerKind::simulator;
    bool order_truth = false;
    bool book_truth = false;
    int tick_interval_ms = -1;    // of the simulator's market; -1: it stands still, and all that happens is the load's
    std::string pass_times = {};  // the file for the lengths of its passes; empty: they are not taken
};

class Target {
public:
    explicit Target(const ServerSettings& settings);

    std::uint16_t port() const { return port_.number(); }
    // What the process has used of the processors since it began, its system calls included.
    double processor_seconds() const;
    // Between runs: empties the truth logs, and takes in what the server has said, or its pipe would fill up.
    void tidy();
    // Ends the process in good order.
    void stop() { process_.stop(); }

private:
    test::ReservedPort port_;
    client::FeedReader feed_;  // holds the port to which the feed goes; what comes is not read
    test::TemporaryFile order_truth_;
    test::TemporaryFile book_truth_;
    test::Process process_;
};

// How long the simulator takes from its start to its banner, in seconds.
//   symbols  as the command line takes them
double start_seconds(const std::string& symbols);

}  // namespace kavo::benchmarks

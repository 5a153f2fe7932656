// Everything that went into the venue and everything that left it, in the order in which it happened. It is all that
// the auditor ever sees of a simulated day, and all that a story is told from.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/bytes.h"

namespace kavo::simulation {

enum class What : std::uint8_t {
    clock,     // from here on both clocks stand at another moment
    step,      // a pass begins a step
    readable,  // the poll has found something to read on this connection
    command,
    command_reply,
    no_command,    // waits any more
    nobody_calls,  // any more, or nobody can be accepted
    client_connected,
    client_bytes,     // read by the venue; perhaps none
    client_gone,      // read by the venue: the peer has closed
    packet_sent,      // towards a client
    packets_pushed,   // what waits for another packet goes out
    client_finished,  // the venue sends nothing more
    client_closed,    // by the venue
    receiver_connected,
    receiver_bytes,
    receiver_gone,
    reply_sent,  // towards a receiver
    receiver_finished,
    receiver_closed,
    datagram,
    order_truth,  // a line of the order truth log
    book_truth,   // a line of the book truth stream
    commentary,   // a line on standard error
    snapshot,     // the text of a snapshot file
};

// The steps of a pass, in their order, and what comes before and behind them all.
enum class Step : std::uint8_t {
    commands,
    accept,
    serve,
    continue_sending,
    read_time,
    market,
    deliver,
    announce_lapse,
    timers,
    bench_report,
    feed_heartbeat,
    recovery,
    snapshots,
    feed_report,
    start_of_day,
    end_of_day,
};
std::string_view name_of(Step step);

struct Entry {
    What what = What::step;
    Step step = Step::commands;
    bool flag = false;      // packet_sent: another packet follows
    std::size_t taken = 0;  // packet_sent, reply_sent: so many of the bytes
    int fd = 0;             // of the connection, where there is one
    std::uint64_t steady_ms = 0;
    std::uint64_t wall_ns = 0;
    std::string text;  // lines are without their line end
    Bytes bytes;
};

using Tape = std::vector<Entry>;

// Descriptors begin beyond every one that the system gives out. People count from 0.
inline constexpr int first_fd = 1 << 24;
inline std::string number_of(int fd) {
    return std::to_string(fd - first_fd);
}

Entry entry_of(What what, int fd, ByteView bytes = {});
Entry sent_entry(What what, int fd, ByteView bytes, std::size_t taken, bool more_follows);
Entry line_of(What what, std::string_view text);
Entry step_entry(Step step);
Entry clock_entry(std::uint64_t steady_ms, std::uint64_t wall_ns);

// What the printf family makes of its arguments.
[[gnu::format(printf, 1, 2)]] std::string printed(const char* pattern, ...);

}  // namespace kavo::simulation

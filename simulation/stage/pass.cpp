// A pass of the main loop, step by step. Sockets are all that is missing: connections and bytes come from the peers.
#include <utility>

#include "app/main_loop.h"
#include "app/statistics.h"
#include "engine/snapshot_files.h"
#include "stage/stage.h"

namespace kavo::simulation {

namespace {

constexpr int no_listener = -1;

}  // namespace

void Stage::pass() {
    carry_out_commands();
    accept_clients();
    serve_clients();
    tape_.push_back(entry_of(What::pass_time, 0));
    const std::uint64_t now = now_ms();
    tick_market(now);
    begin(Step::deliver);
    order_entry_.deliver_engine_output();
    begin(Step::announce_lapse);
    order_entry_.announce_lapse(now);
    begin(Step::timers);
    order_entry_.run_timers(now);
    report_bench(now);
    begin(Step::feed_heartbeat);
    feed_.heartbeat_when_idle();
    serve_receivers();
    write_snapshots(now);
    report_feed(now);
}

void Stage::carry_out_commands() {
    begin(Step::commands);
    for (const std::string& line : std::exchange(commands_, {})) {
        tape_.push_back(line_of(What::command, line));
        tape_.push_back(line_of(What::command_reply, control_port_.handle(line).text));
    }
}

void Stage::accept_clients() {
    begin(Step::accept);
    for (Peer* peer : std::exchange(client_calls_, {})) {
        peer->fd = free_descriptor();
        peer->accepted = true;
        clients_[peer->fd] = peer;
        tape_.push_back(entry_of(What::client_connected, peer->fd));
        const ClientHandle handle = order_entry_.open_client(peer->fd);
        order_entry_.client(handle).readable = false;  // there is no socket to read
    }
}

// A peer that has closed is left to the venue itself: its read of a descriptor that does not exist fails, as it does on
// a dead connection.
void Stage::serve_clients() {
    begin(Step::serve);
    for (const ClientHandle handle : std::vector(order_entry_.open_clients())) {
        MeoClient& client = order_entry_.client(handle);
        if (client.open() && clients_.at(client.fd)->gone) {
            record(entry_of(What::client_gone, client.fd));
            client.readable = true;
            order_entry_.serve_clients();
        } else if (client.open() && !clients_.at(client.fd)->to_venue.empty()) {
            const Bytes bytes = std::exchange(clients_.at(client.fd)->to_venue, {});
            record(entry_of(What::client_bytes, client.fd, bytes));
            order_entry_.receive(handle, bytes);
        }
    }
    order_entry_.serve_clients();  // nobody is readable: the records of closed connections are tidied up
}

// The interval is compared without its sign, as the main loop does.
void Stage::tick_market(std::uint64_t now_ms) {
    begin(Step::market);
    const auto interval_ms = static_cast<std::uint64_t>(std::int64_t{tick_interval_ms_});
    if (is_due(now_ms, last_tick_ms_, interval_ms)) engine_.tick();
}

void Stage::report_bench(std::uint64_t now_ms) {
    begin(Step::bench_report);
    if (!bench_.scripted() && !plan_.control_port) return;
    if (is_due(now_ms, last_bench_report_ms_, MainLoop::bench_report_interval_ms)) {
        print_bench_report(bench_, feed_, order_entry_);
    }
}

void Stage::accept_receivers() {
    for (Peer* peer : std::exchange(receiver_calls_, {})) {
        peer->fd = free_descriptor();
        peer->accepted = true;
        receivers_[peer->fd] = peer;
        tape_.push_back(entry_of(What::receiver_connected, peer->fd));
        retransmission_.open_connection(peer->fd).readable = false;
    }
}

void Stage::serve_receivers() {
    begin(Step::recovery);
    accept_receivers();
    for (RConn& connection : retransmission_.connections()) {
        if (!connection.open()) continue;
        Peer& peer = *receivers_.at(connection.fd);
        if (peer.gone) {
            record(entry_of(What::receiver_gone, connection.fd));
            connection.readable = true;
        } else if (!peer.to_venue.empty()) {
            const Bytes bytes = std::exchange(peer.to_venue, {});
            record(entry_of(What::receiver_bytes, connection.fd, bytes));
            retransmission_.receive(connection, bytes);
        }
    }
    retransmission_.serve(no_listener);
}

void Stage::write_snapshots(std::uint64_t now_ms) {
    begin(Step::snapshots);
    if (!is_due(now_ms, last_snapshot_ms_, MainLoop::snapshot_interval_ms)) return;
    tape_.push_back(line_of(What::snapshot, book_snapshot(engine_.products(), clock_.wall_ns())));
    tape_.push_back(line_of(What::snapshot, bbo_snapshot(engine_.products())));
}

void Stage::report_feed(std::uint64_t now_ms) {
    begin(Step::feed_report);
    if (is_due(now_ms, last_feed_report_ms_, MainLoop::feed_report_interval_ms)) {
        print_feed_report(feed_, engine_, order_entry_);
    }
}

}  // namespace kavo::simulation

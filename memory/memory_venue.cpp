#include "memory/memory_venue.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

namespace kavo {

namespace {

Clock clock_at(const MemoryVenue::Setting& setting) {
    Clock clock;
    clock.stand_at(setting.start_ms, setting.start_wall_ns);
    return clock;
}

std::vector<std::string> take_lines(std::string& text) {
    std::vector<std::string> lines;
    std::string_view rest = text;
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        lines.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    text.clear();
    return lines;
}

}  // namespace

void MemoryConnection::send(ByteView bytes) {
    peer_->sends.insert(peer_->sends.end(), bytes.begin(), bytes.end());
}

Bytes MemoryConnection::take() {
    peer_->packets.clear();
    peer_->more_follows.clear();
    return std::exchange(peer_->received, {});
}

MemoryVenue::MemoryVenue(const std::vector<std::string>& arguments, const Setting& setting)
    : clock_(clock_at(setting)), venue_(read(arguments, setting), surroundings()) {
    venue_.control_port.open = true;
    venue_.engine.order_truth.log.write_to([this](std::string_view line) { order_truth_ += line; });
    venue_.engine.books.truth.write_to([this](std::string_view line) { book_truth_ += line; });
    venue_.start_day();
}

Options MemoryVenue::read(const std::vector<std::string>& arguments, const Setting& setting) {
    std::vector<const char*> words;
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    std::string said;
    std::optional<Options> options = parse_options(words, Commentary([&said](std::string_view text) { said += text; }));
    if (!options) throw std::invalid_argument(said.substr(0, said.find('\n')));
    options->truth_out.clear();
    options->scenario = setting.scenario;
    return *options;
}

Surroundings MemoryVenue::surroundings() {
    const auto receive = [this]() -> std::optional<std::string_view> {
        return std::exchange(command_waits_, false) ? std::optional<std::string_view>(command_) : std::nullopt;
    };
    return {clock_,
            commentary_,
            [this](ByteView datagram) { datagrams_.emplace_back(datagram.begin(), datagram.end()); },
            clients_.transport(),
            receivers_.transport(),
            {receive, [this](std::string_view text) { reply_ = text; }, [this] { stopped_ = true; }},
            {}};
}

MemoryConnection MemoryVenue::call(MemoryPeers& peers) {
    return MemoryConnection(peers.call(next_fd_++));
}

// As the poll of the real loop would find it.
void MemoryVenue::look_for_input() {
    venue_.order_entry.clients_waiting = !clients_.calling.empty();
    venue_.retransmission.connections_waiting = !receivers_.calling.empty();
    for (const ClientHandle handle : venue_.order_entry.open_clients()) {
        MeoClient& client = venue_.order_entry.client(handle);
        client.readable |= client.open() && clients_.peers[client.fd].has_input();
    }
    for (RConn& connection : venue_.retransmission.connections()) {
        connection.readable |= connection.open() && receivers_.peers[connection.fd].has_input();
    }
}

void MemoryVenue::pass() {
    if (stopped_) return;
    look_for_input();
    venue_.pass();
}

void MemoryVenue::advance(std::chrono::milliseconds time) {
    pass();
    while (time.count() > 0) {
        const std::chrono::milliseconds step = std::min(time, longest_wait);
        clock_.advance_ms(static_cast<std::uint64_t>(step.count()));
        time -= step;
        pass();
    }
}

std::vector<Bytes> MemoryVenue::take_datagrams() {
    return std::exchange(datagrams_, {});
}

std::string MemoryVenue::command(std::string_view text) {
    command_ = text;
    command_waits_ = true;
    reply_.clear();
    pass();
    return reply_;
}

std::vector<std::string> MemoryVenue::take_order_truth() {
    return take_lines(order_truth_);
}

std::vector<std::string> MemoryVenue::take_book_truth() {
    return take_lines(book_truth_);
}

std::vector<std::string> MemoryVenue::take_commentary() {
    return take_lines(said_);
}

}  // namespace kavo

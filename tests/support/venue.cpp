#include "support/venue.h"

#include <sstream>
#include <utility>

#include "feed/dom_layout.h"

namespace kavo::test {

namespace {

std::string answers_text(const OutboundMessages& messages) {
    std::vector<std::string> lines;
    for (const OutboundMessage& message : messages) lines.push_back(meo_text(message.message.bytes()));
    return joined(lines);
}

std::string levels_text(const BookSide& side) {
    std::string text;
    for (const auto& [rank, level] : side.levels()) {
        if (!text.empty()) text += ' ';
        text += std::to_string(level.total) + "@" + price_text(to_wire(level.price));
    }
    return text;
}

Clock standing_clock() {
    Clock clock;
    clock.stand_at(Venue::start_ms, Venue::start_wall_ns);
    return clock;
}

Options options_of(const VenueSettings& settings) {
    Options options;
    options.symbols = "";
    options.seed = settings.seed;
    options.quiet = settings.quiet;
    options.interval_ms = -1;
    options.session = settings.engine.session;
    options.acod = settings.engine.acod;
    options.max_order_size = settings.engine.max_order_size;
    options.step_bps = settings.engine.step_bps;
    options.touch_hit = settings.engine.touch_hit;
    return options;
}

CommandSource no_commands() {
    return {[]() -> std::optional<std::string_view> { return std::nullopt; }, [](std::string_view) {}, [] {}};
}

}  // namespace

Venue::Venue(const VenueSettings& settings)
    : clock(standing_clock()),
      commentary(settings.silent ? Commentary([](std::string_view) {}) : Commentary()),
      venue(options_of(settings),
            {clock,
             commentary,
             [this](ByteView datagram) { datagrams.emplace_back(datagram.begin(), datagram.end()); },
             peers.transport(),
             receivers.transport(),
             no_commands(),
             {}}) {
    engine.order_truth.log.write_to([this](std::string_view line) { truth_ += line; });
    for (const std::string& symbol : settings.symbols) engine.books.add_product(symbol, settings.reference);
    if (settings.seeded) engine.start_day();
}

std::string Venue::enter(const NewOrder& order, ClientHandle client) {
    OutboundMessages answers;
    const Bytes message = order.bytes();
    const auto request = meo::read_new_order(message);
    if (!request) return "not a new order";
    engine.new_order(client, *request, answers);
    return answers_text(answers);
}

std::string Venue::replace(const Replace& replacement, ClientHandle client) {
    OutboundMessages answers;
    const auto request = meo::read_replace(replacement.bytes());
    if (!request) return "not a replace";
    engine.replace(client, *request, answers);
    return answers_text(answers);
}

std::string Venue::cancel(const Cancel& cancellation, ClientHandle client) {
    OutboundMessages answers;
    const auto request = meo::read_cancel(cancellation.bytes());
    if (!request) return "not a cancel";
    engine.cancel(client, *request, answers);
    return answers_text(answers);
}

std::string Venue::told(ClientHandle client) {
    OutboundMessages mine;
    OutboundMessages others;
    for (const OutboundMessage& message : engine.outbox) (message.client == client ? mine : others).push_back(message);
    engine.outbox = others;
    return answers_text(mine);
}

std::vector<Bytes> Venue::published_bytes() {
    std::vector<Bytes> messages;
    for (; published_ < feed.last_sequence(); ++published_) {
        const ByteView message = feed.message(published_ + 1);
        messages.emplace_back(message.begin(), message.end());
    }
    return messages;
}

std::string Venue::published() {
    std::vector<std::string> lines;
    for (const Bytes& message : published_bytes()) {
        if (get(message, dom::layout::type) == static_cast<std::uint8_t>(dom::MessageType::system_time)) continue;
        lines.push_back(dom_text(message));
    }
    return joined(lines);
}

std::string Venue::bids(std::uint32_t product_id) const {
    return levels_text(engine.books.products()[product_id - 1].bids);
}

std::string Venue::asks(std::uint32_t product_id) const {
    return levels_text(engine.books.products()[product_id - 1].asks);
}

std::vector<std::string> Venue::truth() {
    std::istringstream text(std::exchange(truth_, {}));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

ClientHandle Venue::connect() {
    return order_entry.open_client(first_fd + static_cast<int>(order_entry.clients_ever()));
}

ClientHandle Venue::log_in(const std::string& username, std::uint64_t requested_sequence) {
    const ClientHandle client = connect();
    send(client, 'l', client::login(username, requested_sequence).payload());
    return client;
}

void Venue::send(ClientHandle client, char packet_type, ByteView payload) {
    order_entry.receive(client, esesm::build_packet(static_cast<esesm::PacketType>(packet_type), payload));
}

std::string Venue::heard(ClientHandle client) {
    std::vector<std::string> lines;
    const std::vector<Bytes>& packets = connection(client).packets;
    for (std::size_t& next = heard_[client]; next < packets.size(); ++next) lines.push_back(packet_text(packets[next]));
    return joined(lines);
}

void Venue::pass() {
    order_entry.clients_waiting = true;
    for (const ClientHandle client : order_entry.open_clients()) order_entry.client(client).readable = true;
    venue.pass();
}

}  // namespace kavo::test

#include "kavo/support/run_made_by_hand.h"

#include "engine/meo.h"

namespace kavo::companion::test {

namespace {

constexpr std::uint64_t timestamp = RunMadeByHand::start_ns;
constexpr std::uint64_t order_id = 1042;

Bytes bytes_of(const meo::Message& message) {
    return {message.bytes().begin(), message.bytes().end()};
}

// As the venue reads a request, so that its answer says what the venue would say.
template <typename Request, typename Read>
auto as_read(const Request& request, Read read, Bytes& bytes) {
    bytes = request.bytes();
    return *read(bytes);
}

}  // namespace

Bytes started() {
    return bytes_of(meo::build(meo::StartOfSession{timestamp, 1}));
}

Bytes listed(std::uint32_t product_id) {
    return bytes_of(meo::build(meo::SymbolUpdate{timestamp, product_id, "AAPL", 'Q'}));
}

Bytes taken(const client::NewOrder& order) {
    Bytes bytes;
    const auto request = as_read(order, meo::read_new_order, bytes);
    return bytes_of(meo::build(meo::NewOrderResponse{timestamp, request, order_id, meo::NewOrderReason::accepted}));
}

Bytes refused(const client::NewOrder& order, char reason) {
    Bytes bytes;
    const auto request = as_read(order, meo::read_new_order, bytes);
    return bytes_of(meo::build(meo::NewOrderResponse{timestamp, request, 0, static_cast<meo::NewOrderReason>(reason)}));
}

Bytes accepted(const client::NewOrder& order) {
    Bytes bytes;
    const auto request = as_read(order, meo::read_new_order, bytes);
    return bytes_of(meo::build(meo::OrderAccepted{timestamp, request, order_id}));
}

Bytes rests(const client::NewOrder& order) {
    const meo::ClientOrderId id(order.client_order_id);
    return bytes_of(meo::build(meo::OrderResting{timestamp, 1, order_id, id, {}, true}));
}

Bytes filled(std::string_view client_order_id, std::uint32_t quantity, std::uint64_t execution_id) {
    const meo::ClientOrderId id(client_order_id);
    return bytes_of(meo::build(meo::Execution{timestamp,
                                              meo::Mpid("TEST"),
                                              1,
                                              id,
                                              execution_id,
                                              execution_id,
                                              {},
                                              quantity,
                                              true,
                                              meo::Liquidity::added,
                                              'Q'}));
}

Bytes cancelled(std::string_view client_order_id, char reason, std::uint32_t leaves) {
    const meo::ClientOrderId id(client_order_id);
    return bytes_of(meo::build(meo::OrderCancelled{timestamp, meo::Mpid("TEST"), id, 1, order_id, leaves,
                                                   static_cast<meo::SystemCancelReason>(reason)}));
}

Bytes answered(const client::Cancel& request, char reason) {
    Bytes bytes;
    const auto read = as_read(request, meo::read_cancel, bytes);
    return bytes_of(meo::build(
        meo::CancelResponse{timestamp, read, reason == 'D' ? 0 : order_id, static_cast<meo::CancelReason>(reason)}));
}

Bytes answered(const client::Replace& request, std::uint32_t leaves, char reason) {
    Bytes bytes;
    const auto read = as_read(request, meo::read_replace, bytes);
    return bytes_of(meo::build(meo::ReplaceResponse{timestamp, read, reason == 'D' ? 0 : order_id, leaves,
                                                    static_cast<meo::ReplaceReason>(reason)}));
}

Bytes replaced(const client::Replace& request, std::uint32_t leaves) {
    Bytes bytes;
    const auto read = as_read(request, meo::read_replace, bytes);
    return bytes_of(meo::build(meo::ReplaceNotification{timestamp, read, 1, order_id, leaves}));
}

ConnectionMadeByHand& ConnectionMadeByHand::at(std::chrono::nanoseconds since_start) {
    now_ = since_start;
    return *this;
}

ConnectionMadeByHand& ConnectionMadeByHand::logs_in(std::string_view user, std::uint64_t requested_sequence) {
    return logs_in(client::login(user, requested_sequence));
}

ConnectionMadeByHand& ConnectionMadeByHand::logs_in(const client::Login& login) {
    if (conversation_.user.empty()) conversation_.user = login.username;
    return says(esesm::PacketType::login_request, login.payload());
}

ConnectionMadeByHand& ConnectionMadeByHand::says(esesm::PacketType type, ByteView payload) {
    return passes(true, esesm::build_packet(type, payload));
}

ConnectionMadeByHand& ConnectionMadeByHand::says_half(ByteView bytes) {
    conversation_.rest_of_client = run_.keep(Bytes(bytes.begin(), bytes.end()));
    return *this;
}

ConnectionMadeByHand& ConnectionMadeByHand::is_answered(char login_status, std::uint64_t highest_sequence) {
    const auto status = static_cast<esesm::LoginStatus>(login_status);
    return passes(false, esesm::build(esesm::LoginResponse{{{status, 1, highest_sequence}}}));
}

ConnectionMadeByHand& ConnectionMadeByHand::is_told(std::uint64_t sequence, ByteView message) {
    Bytes packet(esesm::sequenced_size(message.size()));
    esesm::build_sequenced(packet, sequence, message);
    return passes(false, std::move(packet));
}

ConnectionMadeByHand& ConnectionMadeByHand::is_told(std::uint64_t first, std::uint64_t last, ByteView message) {
    for (std::uint64_t sequence = first; sequence <= last; ++sequence) is_told(sequence, message);
    return *this;
}

ConnectionMadeByHand& ConnectionMadeByHand::has_heard_all() {
    return passes(false, Bytes(esesm::replay_complete.begin(), esesm::replay_complete.end()));
}

ConnectionMadeByHand& ConnectionMadeByHand::hears_goodbye(char reason, std::string_view text) {
    return passes(false, esesm::build(esesm::Goodbye{static_cast<esesm::GoodbyeReason>(reason), text}));
}

ConnectionMadeByHand& ConnectionMadeByHand::hears(esesm::PacketType type, ByteView payload) {
    return passes(false, esesm::build_packet(type, payload));
}

ConnectionMadeByHand& ConnectionMadeByHand::hears_half(ByteView bytes) {
    conversation_.rest_to_client = run_.keep(Bytes(bytes.begin(), bytes.end()));
    return *this;
}

ConnectionMadeByHand& ConnectionMadeByHand::lives_until(std::chrono::nanoseconds since_start) {
    for (bool both = false; now_ + 500ms < since_start; both = !both) {
        after(500ms).beats();
        if (both) hears_heartbeat();
    }
    return at(since_start);
}

ConnectionMadeByHand& ConnectionMadeByHand::beats_until(std::chrono::nanoseconds since_start) {
    while (now_ + 500ms < since_start) after(500ms).beats();
    return at(since_start);
}

ConnectionMadeByHand& ConnectionMadeByHand::hears_heartbeats_until(std::chrono::nanoseconds since_start) {
    while (now_ + 1s < since_start) after(1s).hears_heartbeat();
    return at(since_start);
}

ConnectionMadeByHand& ConnectionMadeByHand::passes(bool by_client, Bytes packet) {
    const Moment moment = run_.moment(now_);
    const WirePacket passed{moment, moment, by_client, run_.keep(std::move(packet))};
    conversation_.with_client.push_back(passed);
    conversation_.with_venue.push_back(passed);
    return *this;
}

ConnectionMadeByHand& ConnectionMadeByHand::ends(EndedBy who, bool reset) {
    conversation_.closed = run_.moment(now_);
    conversation_.ended_by = who;
    conversation_.reset = reset;
    return *this;
}

RunMadeByHand::RunMadeByHand() {
    journal_.facts.started_ns = start_ns;
    journal_.facts.symbols = {"AAPL"};
}

ConnectionMadeByHand& RunMadeByHand::connection(std::chrono::nanoseconds opened, Service service) {
    Conversation& conversation = journal_.conversations.emplace_back();
    conversation.number = journal_.conversations.size();
    conversation.service = service;
    conversation.opened = moment(opened);
    return connections_.emplace_back(*this, conversation).at(opened);
}

void RunMadeByHand::datagram(std::chrono::nanoseconds at, Bytes bytes) {
    journal_.feed.push_back({moment(at), keep(std::move(bytes))});
}

void RunMadeByHand::note(std::chrono::nanoseconds at, std::string_view event, std::string_view values) {
    const std::uint64_t t_ns = start_ns + static_cast<std::uint64_t>(at.count());
    std::string json = "{\"t\":" + std::to_string(t_ns) + ",\"ev\":\"" + std::string(event) + "\"";
    if (!values.empty()) json += "," + std::string(values);
    journal_.notes.push_back({t_ns, std::string(event), json + "}"});
}

void RunMadeByHand::venue_says(std::chrono::nanoseconds at, std::string_view line) {
    journal_.venue.push_back({start_ns + static_cast<std::uint64_t>(at.count()), keep(line)});
}

void RunMadeByHand::machine_is_late(std::chrono::nanoseconds at, std::chrono::milliseconds by) {
    note(at, "late", "\"ms\":" + std::to_string(by.count()));
}

void RunMadeByHand::ends(std::chrono::nanoseconds at) {
    note(at, "venue_end", "\"status\":0,\"signal\":0,\"stopped\":true");
}

ByteView RunMadeByHand::keep(Bytes bytes) {
    return bytes_.emplace_back(std::move(bytes));
}

std::string_view RunMadeByHand::keep(std::string_view text) {
    return texts_.emplace_back(text);
}

Moment RunMadeByHand::moment(std::chrono::nanoseconds at) {
    return {start_ns + static_cast<std::uint64_t>(at.count()), ++packets_};
}

}  // namespace kavo::companion::test

#include "harness/session_story.h"

#include <limits>
#include <utility>

#include "client/requests.h"
#include "harness/harness.h"

namespace kavo::fuzz {

namespace {

constexpr std::array<std::uint64_t, 12> waits_ms{0, 1, 40, 300, 301, 999, 1000, 1001, 2999, 3000, 10'000, 30'000};

// Absurd references among them: whatever the market makes of these, the sessions go on.
constexpr std::array<double, 8> references{190.0, 190.0, 190.0, 0.02,
                                           -5.0,  1e18,  1e300, std::numeric_limits<double>::quiet_NaN()};

test::VenueSettings settings_from(Input& input) {
    test::VenueSettings settings;
    settings.symbols.resize(input.below(3), "AAPL");
    settings.reference = input.pick(references);
    settings.engine.session = input.pick(std::array<std::uint8_t, 3>{1, 7, 255});
    settings.engine.acod = input.below(2) == 1;
    settings.engine.touch_hit = input.pick(std::array<double, 2>{0.15, 1.0});
    settings.seeded = input.below(2) == 1;
    settings.seed = input.byte();
    settings.quiet = input.below(2) == 1;
    return settings;
}

Bytes packet(char type, ByteView payload) {
    return esesm::build_packet(static_cast<esesm::PacketType>(type), payload);
}

}  // namespace

SessionStory::SessionStory(ByteView bytes) : input_(bytes), settings_(settings_from(input_)) {
    arm_scenario();
}

void SessionStory::arm_scenario() {
    const auto every = [this] { return static_cast<std::uint32_t>(input_.below(8)) / 2; };
    Bench& bench = venue_.bench;
    bench.disconnect_after = input_.pick(std::array<std::uint32_t, 4>{0, 0, 1, 5});
    bench.lapse_ms = input_.pick(std::array<std::int32_t, 8>{0, 0, 0, 0, 500, 3'500, 20'000, -1});
    bench.reject_every = every();
    bench.partial_fill_every = every();
    bench.fill_on_cancel_every = every();
    bench.unsolicited_cancel_every = every();
    bench.replace_reject_every = every();
}

void SessionStory::tell() {
    while (!input_.empty() && steps_++ < most_steps) step();
    end();
}

void SessionStory::step() {
    count_step();
    switch (input_.below(16)) {
        case 0: connect(); return;
        case 1:
        case 2: return let_time_pass();
        case 3: venue_.engine.tick(); return pass();
        case 4: return lose(some_client());
        case 5: return steer();
        default: return say_something();
    }
}

// Now and then the words wait for the next ones, and now and then they arrive in two parts.
void SessionStory::say_something() {
    const ClientHandle client = some_client();
    unsaid_.resize(venue_.order_entry.clients_ever());
    Bytes& unsaid = unsaid_[static_cast<std::size_t>(client)];
    const Bytes said = words();
    unsaid.insert(unsaid.end(), said.begin(), said.end());
    const std::size_t manner = input_.below(8);
    if (manner == 1 || manner == 2) return;
    const Bytes all = std::exchange(unsaid, {});
    const std::size_t first_part = manner == 3 ? std::min(input_.below(256), all.size()) : all.size();
    deliver(client, ByteView(all).first(first_part));
    deliver(client, ByteView(all).subspan(first_part));
}

Bytes SessionStory::words() {
    switch (input_.below(8)) {
        case 0:
        case 1: return packet('l', login());
        case 2:
        case 3: return packet('U', new_order());
        case 4: return packet('U', replace());
        case 5: return packet('U', cancel());
        case 6: return any_packet();
        default: {
            const ByteView bytes = input_.bytes(input_.below(64));
            return {bytes.begin(), bytes.end()};
        }
    }
}

Bytes SessionStory::login() {
    constexpr std::array<std::string_view, 6> users{"alice", "bob", "carol", "a b", "alice", ""};
    const std::string_view user = input_.pick(users);
    client::Login login = client::login(user, input_.below(16));
    if (input_.one_in(16)) login.requested_sequence = input_.number<std::uint64_t>();
    if (input_.one_in(16)) login.session_protocol = "1.1";
    if (input_.one_in(16)) login.application_protocol = "DoM1.3";
    if (input_.one_in(16)) login.computer_id = "";
    if (input_.one_in(16)) login.matching_engine_id = input_.byte();
    if (input_.one_in(16)) login.matching_engine_count = static_cast<std::uint8_t>(input_.below(3));
    Bytes payload = login.payload();
    if (input_.one_in(16)) payload.resize(input_.below(payload.size()));
    return payload;
}

Bytes SessionStory::new_order() {
    const bool sell = input_.below(2) == 1;
    client::NewOrder order = sell ? client::sell(id()) : client::buy(id());
    order.product_id = input_.one_in(16) ? input_.byte() : 1;
    order.quantity = 1 + input_.byte();
    order.price = price();
    order.tif = input_.pick(std::array<char, 4>{'D', 'I', 'F', 'D'});
    if (input_.one_in(8)) order.order_type = '2';
    if (order.order_type == '2') order.price = 0;
    if (input_.one_in(16)) order.order_flags = input_.number<std::uint16_t>();
    return order.bytes();
}

Bytes SessionStory::replace() {
    const std::string replaced = id();
    client::Replace replacement = client::replace(replaced, id());
    replacement.quantity = input_.byte();
    replacement.price = price();
    return replacement.bytes();
}

Bytes SessionStory::cancel() {
    return client::cancel(id()).product(input_.one_in(16) ? 2 : 1).bytes();
}

Bytes SessionStory::any_packet() {
    constexpr std::array<char, 8> types{'1', 'T', 'X', 'U', 'Q', 's', 'l', '\0'};
    const char type = input_.one_in(8) ? static_cast<char>(input_.byte()) : input_.pick(types);
    return packet(type, input_.bytes(input_.below(140)));
}

// Few, so that they meet again and again.
std::string SessionStory::id() {
    return std::string("o").append(std::to_string(input_.below(12)));
}

WirePrice SessionStory::price() {
    if (input_.one_in(32)) return input_.number<std::uint64_t>();
    return (18'995 + input_.below(11)) * WirePrice{10'000};
}

ClientHandle SessionStory::connect() {
    const std::size_t clients = venue_.order_entry.clients_ever();
    if (clients == most_clients) return static_cast<ClientHandle>(clients - 1);
    const ClientHandle client = venue_.connect();
    audit_.connected(client);
    return client;
}

// An open one if that can be: the next from a place that the input names, or a new one.
ClientHandle SessionStory::some_client() {
    const std::size_t clients = venue_.order_entry.clients_ever();
    const std::size_t start = input_.byte();
    for (std::size_t i = 0; i < clients; ++i) {
        const auto client = static_cast<ClientHandle>((start + i) % clients);
        if (audit_.is_open(client)) return client;
    }
    return connect();
}

// As the main loop does, which never reads what is closed.
void SessionStory::deliver(ClientHandle client, ByteView bytes) {
    if (bytes.empty() || !audit_.is_open(client)) return;
    audit_.before_receive();
    venue_.order_entry.receive(client, bytes);
    audit_.received(client, bytes);
}

void SessionStory::lose(ClientHandle client) {
    if (!audit_.is_open(client)) return;
    venue_.order_entry.lose_client(client);
    audit_.lost(client);
}

void SessionStory::let_time_pass() {
    venue_.clock.advance_ms(next_wait_ms());
    pass();
}

// A usual wait, or any, or one that ends with the silence of the venue, or a millisecond before.
std::uint64_t SessionStory::next_wait_ms() {
    const std::size_t choice = input_.below(waits_ms.size() + 3);
    if (choice < waits_ms.size()) return waits_ms[choice];
    if (choice == waits_ms.size()) return input_.number<std::uint16_t>();
    const std::uint64_t silent_ms = audit_.in_lapse() ? audit_.lapse_until_ms() - venue_.clock.steady_ms() : 1;
    return choice == waits_ms.size() + 1 ? silent_ms : silent_ms - 1;
}

void SessionStory::pass() {
    venue_.order_entry.serve_clients();  // what is closed is forgotten
    audit_.before_pass();
    venue_.pass();
    venue_.feed.heartbeat_when_idle();
    audit_.passed();
}

// The person at the controls.
void SessionStory::steer() {
    Bench& bench = venue_.bench;
    switch (input_.below(8)) {
        case 0: bench.disconnect_requested = true; return;
        case 1: {
            const std::uint64_t length_ms = input_.pick(waits_ms);
            bench.start_lapse(venue_.clock.steady_ms(), length_ms);
            return audit_.lapse_started(venue_.clock.steady_ms() + length_ms);
        }
        case 2: bench.reject_next = static_cast<std::uint32_t>(input_.below(3)); return;
        case 3: bench.partial_next = static_cast<std::uint32_t>(input_.below(3)); return;
        case 4: bench.fill_on_cancel_next = static_cast<std::uint32_t>(input_.below(3)); return;
        case 5: bench.unsolicited_cancel_next = static_cast<std::uint32_t>(input_.below(3)); return;
        case 6: bench.replace_reject_next = static_cast<std::uint32_t>(input_.below(3)); return;
        default: venue_.engine.market.paused = input_.below(2) == 1; return;
    }
}

// The lights go on: every silence is over, everybody leaves, and each user comes back for the whole stream.
void SessionStory::end() {
    while (audit_.in_lapse()) venue_.clock.advance_ms(1000);
    for (std::size_t i = 0; i < venue_.order_entry.clients_ever(); ++i) lose(static_cast<ClientHandle>(i));
    pass();
    for (const std::string& user : audit_.users()) {
        const ClientHandle client = venue_.connect();
        audit_.connected(client);
        deliver(client, packet('l', client::login(user, 1).payload()));
        lose(client);
    }
    pass();
    audit_.compare_counters();
}

}  // namespace kavo::fuzz

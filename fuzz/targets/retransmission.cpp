// Receivers of the retransmission service, with their requests whole, in pieces, or senseless: what they are sent is
// worked out here a second time, byte by byte.
#include "feed/retransmission.h"

#include <string>

#include "harness/harness.h"
#include "harness/input.h"
#include "model/books.h"
#include "model/recovery.h"
#include "model/wire.h"
#include "support/venue.h"

namespace kavo::fuzz {
namespace {

constexpr std::size_t messages = 40;
constexpr std::size_t kept = 24;  // so the oldest have been forgotten
constexpr std::uint8_t session = 1;

// One venue for all inputs. Nothing that a receiver does changes it, but for two counters and the clock, which is set
// back every time.
struct Scene {
    Scene() {
        venue.enter(client::buy("b1").shares(300).at("189.95"));
        venue.enter(client::sell("s1").shares(200).at("190.05"));
        while (venue.feed.last_sequence() < messages) venue.feed.publish(Bytes(1 + venue.feed.last_sequence(), 'm'));
        venue.feed.flush();
        for (std::uint64_t number = 1; number <= messages; ++number) {
            const ByteView message = venue.feed.message(number);
            literal.publish({message.begin(), message.end()});
        }
        venue.feed.history.trim(kept);
        literal.forget_all_but(kept);
    }
    //   room  bytes that the receiver takes before it is gone
    RConn& connect(std::size_t room) {
        venue.clock.stand_at(test::Venue::start_ms, test::Venue::start_wall_ns);
        venue.feed.counters = {};
        service.connections().clear();
        peers.peers.clear();
        receiver().room = room;
        return service.open_connection(1);
    }
    MemoryPeer& receiver() { return peers.peers[1]; }

    test::Venue venue{{.engine = {.session = session}, .silent = true}};
    MemoryPeers& peers = venue.receivers;
    Retransmission& service = venue.venue.retransmission;
    model::Feed literal{session};
};

model::Order resting(std::uint64_t id, bool buy, std::uint32_t price, std::uint32_t leaves) {
    model::Order order;
    order.id = id;
    order.product_id = 1;
    order.buy = buy;
    order.price = price;
    order.leaves = leaves;
    return order;
}

// What a refresh must tell of that venue.
model::Recovery::State state_at(std::uint64_t now_ns) {
    model::Product product;
    product.name = "AAPL";
    product.product_id = 1;
    return {{model::series_definition(now_ns, product)},
            {model::series_status(now_ns, product)},
            {model::add_order(now_ns, resting(1000, true, 1'899'500, 300)),
             model::add_order(now_ns, resting(1001, false, 1'900'500, 200))}};
}

// What one receiver must be sent.
struct LiteralService {
    explicit LiteralService(const Scene& scene) : clock(scene.venue.clock), feed(scene.literal) {}

    void receive(ByteView bytes) {
        arrived.arrive(bytes);
        while (open) {
            const auto packet = arrived.cut();
            if (!packet) return;
            count_step();
            take(recovery.handle(receiver, *packet, clock.wall_ns()));
        }
    }
    void run_timer() {
        if (open && recovery.is_late(receiver, clock.steady_ms())) take(recovery.end_of_patience());
    }
    void take(const model::Recovery::Answer& answer) {
        model::append(expected, answer.bytes);
        open = answer.then == model::Recovery::Answer::Then::goes_on;
    }

    const Clock& clock;
    const model::Feed& feed;
    model::Recovery recovery{feed, session, [this] { return state_at(clock.wall_ns()); }};
    model::Recovery::Receiver receiver{.connected_ms = clock.steady_ms()};
    model::Cutter arrived;
    Bytes expected;
    bool open = true;
};

constexpr std::array<char, 9> known_types{'l', 'a', 'U', '1', 'T', 'X', 'G', 's', '\0'};

Bytes login(Input& input) {
    client::Login login = client::login("recv");
    login.application_protocol = "DoM1.3";
    if (input.one_in(8)) login.session_protocol = "1.1";
    if (input.one_in(8)) login.application_protocol = "MEO2.7";
    if (input.one_in(8)) login.matching_engine_count = input.byte();
    if (input.one_in(4)) login.requested_sequence = input.byte();
    Bytes payload = login.payload();
    if (input.one_in(8)) payload.resize(input.below(payload.size() + 1));
    return model::session_packet('l', payload);
}

Bytes range(Input& input) {
    Bytes payload;
    for (int i = 0; i < 2; ++i) {
        const bool near = !input.one_in(3);
        model::append_number(payload, near ? input.below(messages + 3) : input.number<std::uint64_t>(), 8);
    }
    if (input.one_in(8)) payload.resize(input.below(20));
    return model::session_packet('a', payload);
}

// What a receiver sends next.
Bytes next_bytes(Input& input) {
    constexpr std::array<char, 5> refresh_types{'O', 'S', 's', 't', 'x'};
    switch (input.below(5)) {
        case 0: return login(input);
        case 1: return range(input);
        case 2: return model::session_packet('U', Bytes{'R', static_cast<std::uint8_t>(input.pick(refresh_types))});
        case 3: {
            const char type = input.one_in(4) ? static_cast<char>(input.byte()) : input.pick(known_types);
            return model::session_packet(type, input.bytes(input.byte()));
        }
        default: {
            const ByteView bytes = input.bytes(input.byte());
            return {bytes.begin(), bytes.end()};
        }
    }
}

void compare(Scene& scene, const LiteralService& literal, const RConn& connection) {
    const MemoryPeer& receiver = scene.receiver();
    require(std::equal(receiver.received.begin(), receiver.received.end(), literal.expected.begin(),
                       literal.expected.begin() +
                           static_cast<std::ptrdiff_t>(std::min(receiver.received.size(), literal.expected.size()))),
            "a receiver is sent what stands on paper");
    if (receiver.room == 0) return;  // it has stopped reading, and waits for what it will never take
    require(receiver.received.size() == literal.expected.size(), "a receiver is sent all of it");
    require(receiver.closed == (connection.open() ? 0 : 1), "a connection is closed once");
    require(connection.open() == literal.open, "a connection ends when its request has been served");
    const FeedCounters& counters = scene.venue.feed.counters;
    require(counters.retransmissions == literal.recovery.retransmissions, "retransmissions are counted");
    require(counters.refreshes == literal.recovery.refreshes, "refreshes are counted");
}

// A receiver that stops reading is given up after two seconds, and closed once.
void give_up(Scene& scene) {
    for (int i = 0; i < 2; ++i) {
        scene.service.serve();
        scene.venue.clock.advance_ms(2'000);
    }
    scene.service.serve();
    require(scene.receiver().closed == 1, "a receiver that takes nothing is closed once");
    require(scene.service.farewells().empty(), "nobody waits for it");
}

// How much the receiver takes before it stops reading, then what arrives, and how much time passes in between.
void serve_receiver(ByteView bytes) {
    static Scene scene;
    Input input(bytes);
    RConn& connection = scene.connect(input.one_in(4) ? input.number<std::uint16_t>() : MemoryPeer::unlimited);
    LiteralService literal(scene);
    while (!input.empty() && connection.open() && scene.receiver().room != 0) {
        Bytes arriving = next_bytes(input);
        for (; input.one_in(3); model::append(arriving, next_bytes(input))) continue;
        const std::size_t first_part = input.one_in(3) ? input.below(40) : arriving.size();
        for (const ByteView part : {ByteView(arriving).first(std::min(first_part, arriving.size())),
                                    ByteView(arriving).subspan(std::min(first_part, arriving.size()))}) {
            literal.receive(part);
            if (connection.open()) scene.service.receive(connection, part);
        }
        const std::uint64_t ms = input.one_in(4) ? input.number<std::uint16_t>() : 0;
        scene.venue.clock.advance_ms(ms);
        scene.service.run_timer(connection);
        literal.run_timer();
        compare(scene, literal, connection);
    }
    if (!connection.outgoing.empty() || !scene.service.farewells().empty()) give_up(scene);
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::serve_receiver);
}

// Receivers of the retransmission service, with their requests whole, in pieces, or senseless: what they are sent is
// worked out here a second time, byte by byte.
#include "feed/retransmission.h"

#include <string>

#include "harness/harness.h"
#include "harness/input.h"
#include "harness/literal_cutter.h"
#include "harness/literal_login.h"
#include "support/venue.h"

namespace kavo::fuzz {
namespace {

constexpr std::size_t messages = 40;
constexpr std::size_t kept = 24;  // so the oldest have been forgotten
constexpr std::uint64_t login_limit_ms = 30'000;
constexpr std::uint8_t session = 1;

void append(Bytes& to, ByteView bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}
void append_number(Bytes& to, std::uint64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
Bytes framed(char type, ByteView payload) {
    Bytes packet;
    append_number(packet, payload.size() + 1, 2);
    packet.push_back(static_cast<std::uint8_t>(type));
    append(packet, payload);
    return packet;
}

// One venue for all inputs. Nothing that a receiver does changes it, but for two counters and the clock, which is set
// back every time.
struct Scene {
    Scene() {
        venue.enter(client::buy("b1").shares(300).at("189.95"));
        venue.enter(client::sell("s1").shares(200).at("190.05"));
        while (venue.feed.last_sequence() < messages) venue.feed.publish(Bytes(1 + venue.feed.last_sequence(), 'm'));
        venue.feed.flush();
        venue.feed.history.trim(kept);
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
};

// What one receiver must be sent.
class LiteralService {
public:
    explicit LiteralService(const Scene& scene) : feed_(scene.venue.feed), clock_(scene.venue.clock) {}

    void receive(ByteView bytes) {
        append(arrived_, bytes);
        while (open) {
            const auto packet = cutter_.cut(arrived_);
            if (!packet) return;
            count_step();
            handle(packet->type, packet->payload);
        }
    }
    void run_timer(std::uint64_t waited_ms) {
        if (open && !logged_in_ && waited_ms > login_limit_ms) say_goodbye('L', "timed out waiting for login");
    }

    Bytes expected;
    bool open = true;
    std::uint64_t retransmissions = 0;
    std::uint64_t refreshes = 0;

private:
    void handle(char type, ByteView payload) {
        if (type == '1' || type == 'T') return;
        if (type == 'X') {
            open = false;
        } else if (type == 'l') {
            log_in(payload);
        } else if (type == 'U') {
            refresh(payload);
        } else if (type == 'a') {
            retransmit(payload);
        } else {
            say_goodbye('B', "unknown packet type");
        }
    }

    void log_in(ByteView payload) {
        const std::optional<LiteralLogin> login = literal_login(payload);
        if (!login) return say_goodbye('B', "malformed login");
        const char status = status_of(*login);
        Bytes response{1, static_cast<std::uint8_t>(status), session};
        append_number(response, feed_.last_sequence(), 8);
        append(expected, framed('r', response));
        if (status == ' ') logged_in_ = true;
        if (status == 'I') say_goodbye('A', "incompatible session protocol version");
        if (status == 'A') say_goodbye('A', "incompatible application protocol version");
        if (status == 'C') say_goodbye('A', "invalid number of matching engines");
    }
    static char status_of(const LiteralLogin& login) {
        if (login.session_protocol != "1.0") return 'I';
        if (login.application_protocol.substr(0, 3) != "DoM") return 'A';
        if (login.entries.size() != 1) return 'C';
        return login.entries[0].sequence != 0 ? 'N' : ' ';
    }

    void retransmit(ByteView payload) {
        if (!logged_in_) return say_goodbye('B', "not logged in");
        if (payload.size() < 16) return say_goodbye('B', "malformed retransmission request");
        const std::uint64_t last = little_endian(payload.subspan(8, 8));
        const std::uint64_t first = little_endian(payload.first(8));
        for (std::uint64_t number = messages - kept + 1; number <= messages; ++number) {
            if (number >= first && number <= last) append_sent_again(number);
        }
        ++retransmissions;
        say_goodbye('A', "retransmission complete");
    }

    void append_sent_again(std::uint64_t number) {
        const ByteView message = feed_.message(number);
        append_number(expected, message.size() + 10, 2);
        expected.push_back('s');
        append_number(expected, number, 8);
        expected.push_back(1);
        append(expected, message);
    }

    void refresh(ByteView payload) {
        if (!logged_in_ || payload.size() < 2 || payload[0] != 'R') return say_goodbye('B', "unknown request");
        const char type = static_cast<char>(payload[1]);
        if (std::string_view("OSst").find(type) == std::string_view::npos) {
            return say_goodbye('B', "unknown refresh type");
        }
        Bytes time{'1'};
        append_number(time, clock_.wall_ns() / 1'000'000'000, 4);
        snapshot(time);
        const auto add = [this](ByteView message) { snapshot(message); };
        if (type == 'O' || type == 's') feed_.state.system_state(add);
        if (type == 'O' || type == 'S') feed_.state.series_definitions(add);
        if (type == 'O' || type == 't') feed_.state.series_trading_status(add);
        if (type == 'O') feed_.state.resting_orders(add);
        append(expected, framed('U', Bytes{'E', static_cast<std::uint8_t>(type)}));
        ++refreshes;
        say_goodbye('A', "refresh complete");
    }
    void snapshot(ByteView message) {
        append_number(expected, message.size() + 10, 2);
        append(expected, as_bytes("Ur"));
        append_number(expected, messages, 8);
        append(expected, message);
    }

    void say_goodbye(char reason, std::string_view text) {
        append(expected, framed('G', as_bytes(reason + std::string(text))));
        open = false;
    }

    const DomFeed& feed_;
    const Clock& clock_;
    LiteralCutter cutter_;
    Bytes arrived_;
    bool logged_in_ = false;
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
    return framed('l', payload);
}

Bytes range(Input& input) {
    Bytes payload;
    for (int i = 0; i < 2; ++i) {
        const bool near = !input.one_in(3);
        append_number(payload, near ? input.below(messages + 3) : input.number<std::uint64_t>(), 8);
    }
    if (input.one_in(8)) payload.resize(input.below(20));
    return framed('a', payload);
}

// What a receiver sends next.
Bytes next_bytes(Input& input) {
    constexpr std::array<char, 5> refresh_types{'O', 'S', 's', 't', 'x'};
    switch (input.below(5)) {
        case 0: return login(input);
        case 1: return range(input);
        case 2: return framed('U', Bytes{'R', static_cast<std::uint8_t>(input.pick(refresh_types))});
        case 3: {
            const char type = input.one_in(4) ? static_cast<char>(input.byte()) : input.pick(known_types);
            return framed(type, input.bytes(input.byte()));
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
    require(counters.retransmissions == literal.retransmissions, "retransmissions are counted");
    require(counters.refreshes == literal.refreshes, "refreshes are counted");
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
    std::uint64_t waited_ms = 0;
    while (!input.empty() && connection.open() && scene.receiver().room != 0) {
        Bytes arriving = next_bytes(input);
        for (; input.one_in(3); append(arriving, next_bytes(input))) continue;
        const std::size_t first_part = input.one_in(3) ? input.below(40) : arriving.size();
        for (const ByteView part : {ByteView(arriving).first(std::min(first_part, arriving.size())),
                                    ByteView(arriving).subspan(std::min(first_part, arriving.size()))}) {
            literal.receive(part);
            if (connection.open()) scene.service.receive(connection, part);
        }
        const std::uint64_t ms = input.one_in(4) ? input.number<std::uint16_t>() : 0;
        scene.venue.clock.advance_ms(ms);
        waited_ms += ms;
        scene.service.run_timer(connection);
        literal.run_timer(waited_ms);
        compare(scene, literal, connection);
    }
    if (!connection.outgoing.empty() || !scene.service.farewells().empty()) give_up(scene);
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::serve_receiver);
}

// A day of the venue, told by the fuzzer's bytes: clients come, log in, trade, talk nonsense, stop reading, fall
// silent, vanish and return, on a clock that moves when the story says so. The auditor of the simulated days judges it.
#include <algorithm>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "client/requests.h"
#include "common/price.h"
#include "day.h"
#include "harness/harness.h"
#include "harness/input.h"
#include "model/packets.h"
#include "story.h"

namespace kavo::fuzz {
namespace {

constexpr std::int32_t tick_interval_ms = 40;
constexpr std::array<std::string_view, 4> users{"alice", "bob", "carol", "a b"};
constexpr std::array<std::uint64_t, 12> waits_ms{0, 1, 40, 300, 301, 999, 1000, 1001, 2999, 3000, 10'000, 30'000};

// Absurd references among them: whatever the market makes of these, the sessions go on.
constexpr std::array<double, 8> references{190.0, 190.0, 190.0, 0.02,
                                           -5.0,  1e18,  1e300, std::numeric_limits<double>::quiet_NaN()};

simulation::Plan plan_from(Input& input) {
    simulation::Plan plan;
    const std::size_t symbols = input.below(3);
    plan.symbols.resize(symbols, {"AAPL", input.pick(references)});
    plan.engine.session = input.pick(std::array<std::uint8_t, 3>{1, 7, 255});
    plan.engine.acod = input.below(2) == 1;
    plan.engine.touch_hit = input.pick(std::array<double, 2>{0.15, 1.0});
    plan.tick_interval_ms = input.below(2) == 1 ? tick_interval_ms : -1;
    plan.market_seed = input.byte();
    plan.engine.quiet = input.below(2) == 1;
    plan.control_port = true;
    plan.start_ms = 1'000'000;
    plan.start_wall_ns = 1'700'000'000'123'456'789;

    const auto every = [&input] { return static_cast<std::uint32_t>(input.below(8)) / 2; };
    plan.bench.disconnect_after = input.pick(std::array<std::uint32_t, 4>{0, 0, 1, 5});
    plan.bench.scenario_lapse_ms = input.pick(std::array<std::int32_t, 8>{0, 0, 0, 0, 500, 3'500, 20'000, -1});
    for (model::Bench::Fault& fault : plan.bench.faults) fault.script.every = every();
    return plan;
}

// Whatever stands in a line of its own on standard error or in the truth must stay one.
Bytes without_line_ends(ByteView bytes) {
    Bytes kept(bytes.begin(), bytes.end());
    std::ranges::replace(kept, std::uint8_t{'\n'}, std::uint8_t{'n'});
    return kept;
}

class SessionStory {
public:
    explicit SessionStory(ByteView bytes) : input_(bytes), day_(plan_from(input_), 0) {
        day_.stage.start_day();
        day_.pass_after(0);
    }

    void tell() {
        while (!input_.empty() && steps_++ < most_steps) step();
        end();
    }

private:
    static constexpr unsigned most_steps = 300;  // which keeps the slowest input well below its limit
    static constexpr std::size_t most_clients = 24;

    // A client, and what it has said that waits to arrive together with its next words.
    struct Client {
        simulation::Peer* peer = nullptr;
        Bytes unsaid;

        bool open() const { return !peer->gone && !peer->closed; }
    };

    void step() {
        count_step();
        switch (input_.below(16)) {
            case 0: connect(); return;
            case 1:
            case 2: return let_time_pass();
            case 3: return pass_after(tick_interval_ms);
            case 4: some_client().peer->gone = true; return;
            case 5: return steer();
            default: return say_something();
        }
    }

    // Now and then the words wait for the next ones, now and then they arrive in two parts, and now and then the client
    // stops reading.
    void say_something() {
        Client& client = some_client();
        const Bytes said = words();
        client.unsaid.insert(client.unsaid.end(), said.begin(), said.end());
        const std::size_t manner = input_.below(8);
        if (manner == 1 || manner == 2) return;
        const Bytes all = std::exchange(client.unsaid, {});
        if (manner == 4) client.peer->room = input_.byte();
        if (manner == 5) client.peer->room = simulation::Peer::unlimited;
        const std::size_t first_part = manner == 3 ? std::min(input_.below(256), all.size()) : all.size();
        deliver(client, ByteView(all).first(first_part));
        deliver(client, ByteView(all).subspan(first_part));
    }

    Bytes words() {
        switch (input_.below(8)) {
            case 0:
            case 1: return model::session_packet('l', login());
            case 2:
            case 3: return model::session_packet('U', new_order());
            case 4: return model::session_packet('U', replace());
            case 5: return model::session_packet('U', cancel());
            case 6: return any_packet();
            default: return without_line_ends(input_.bytes(input_.below(64)));
        }
    }

    Bytes login() {
        constexpr std::array<std::string_view, 6> names{"alice", "bob", "carol", "a b", "alice", ""};
        const std::string_view user = input_.pick(names);
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

    // Most of them large enough to take what the market offers, and to rest where another client meets them.
    Bytes new_order() {
        const bool sell = input_.below(2) == 1;
        client::NewOrder order = sell ? client::sell(id()) : client::buy(id());
        order.product_id = input_.one_in(16) ? input_.byte() : 1;
        order.quantity = 100u * (1u + input_.byte());
        order.price = price();
        order.tif = input_.pick(std::array<char, 4>{'D', 'I', 'F', 'D'});
        if (input_.one_in(8)) order.order_type = '2';
        if (order.order_type == '2') order.price = 0;
        if (input_.one_in(16)) order.order_flags = input_.number<std::uint16_t>();
        return order.bytes();
    }

    Bytes replace() {
        const std::string replaced = id();
        client::Replace replacement = client::replace(replaced, id());
        replacement.quantity = 100u * input_.byte();
        replacement.price = price();
        return replacement.bytes();
    }

    Bytes cancel() { return client::cancel(id()).product(input_.one_in(16) ? 2 : 1).bytes(); }

    Bytes any_packet() {
        constexpr std::array<char, 8> types{'1', 'T', 'X', 'U', 'Q', 's', 'l', '\0'};
        const char type = input_.one_in(8) ? static_cast<char>(input_.byte()) : input_.pick(types);
        return model::session_packet(type, without_line_ends(input_.bytes(input_.below(140))));
    }

    // Few, so that they meet again and again.
    std::string id() { return std::string("o").append(std::to_string(input_.below(12))); }

    WirePrice price() {
        if (input_.one_in(32)) return input_.number<std::uint64_t>();
        return (18'995 + input_.below(11)) * WirePrice{10'000};
    }

    Client& connect() {
        if (clients_.size() == most_clients) return clients_.back();
        return clients_.emplace_back(Client{&day_.stage.connect_client(), {}});
    }

    // An open one if that can be: the next from a place that the input names, or a new one.
    Client& some_client() {
        const std::size_t start = input_.byte();
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            Client& client = clients_[(start + i) % clients_.size()];
            if (client.open()) return client;
        }
        return connect();
    }

    void deliver(Client& client, ByteView bytes) {
        if (bytes.empty() || !client.open()) return;
        model::append(client.peer->to_venue, bytes);
        pass_after(0);
    }

    void let_time_pass() { pass_after(next_wait_ms()); }

    // A usual wait, or any, or one that ends with the silence of the venue, or a millisecond before.
    std::uint64_t next_wait_ms() {
        const std::size_t choice = input_.below(waits_ms.size() + 3);
        if (choice < waits_ms.size()) return waits_ms[choice];
        if (choice == waits_ms.size()) return input_.number<std::uint16_t>();
        const std::uint64_t now_ms = day_.stage.now_ms();
        const std::uint64_t silent_ms = silent_until_ms_ > now_ms ? silent_until_ms_ - now_ms : 1;
        return choice == waits_ms.size() + 1 ? silent_ms : silent_ms - 1;
    }

    void pass_after(std::uint64_t ms) {
        day_.pass_after(ms);
        constexpr std::string_view silence = "bench: going silent for ";
        for (; read_ < day_.tape.size(); ++read_) {
            const std::string& text = day_.tape[read_].text;
            if (text.starts_with(silence)) {
                silent_until_ms_ = day_.stage.now_ms() + std::stoull(text.substr(silence.size()));
            }
        }
    }

    // The person at the controls, who is heard in the next pass.
    void steer() {
        const auto faults = model::Bench().faults;
        const std::size_t choice = input_.below(3 + faults.size());
        const auto command = [this](std::string_view word, std::uint64_t number) {
            day_.stage.command(std::string(word) + " " + std::to_string(number));
        };
        if (choice == 0) return day_.stage.command("disconnect");
        if (choice == 1) return command("lapse", input_.pick(waits_ms));
        if (choice == 2 + faults.size()) return day_.stage.command(input_.below(2) == 1 ? "pause" : "resume");
        command(faults.at(choice - 2).control_word, input_.below(3));
    }

    // The lights go on: every silence is over, everybody leaves, and each user comes back for the whole stream.
    void end() {
        day_.calm_down();
        for (Client& client : clients_) client.peer->gone = true;
        pass_after(400);
        for (const std::string_view user : users) {
            simulation::Peer& peer = day_.stage.connect_client();
            peer.to_venue = model::session_packet('l', client::login(user, 1).payload());
            pass_after(1);
            peer.gone = true;
            pass_after(1);
        }
        day_.end();
        const simulation::DayReport report = day_.audit();
        if (!report.finding.empty()) simulation::tell_story(day_.tape, report.finding, report.position, stdout);
        require_nothing_in(report.finding);
    }

    Input input_;
    simulation::Day day_;
    std::vector<Client> clients_;
    std::size_t read_ = 0;  // of the tape
    std::uint64_t silent_until_ms_ = 0;
    unsigned steps_ = 0;
};

void tell(ByteView bytes) {
    SessionStory(bytes).tell();
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::tell);
}

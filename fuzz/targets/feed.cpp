// The feed and its history: whatever is published, flushed, damaged, forgotten and asked for again, the datagrams and
// the retransmissions are those of the feed on paper.
#include <algorithm>

#include "app/statistics.h"
#include "client/recovery_client.h"
#include "feed/dom_feed.h"
#include "feed/retransmission.h"
#include "harness/harness.h"
#include "harness/input.h"
#include "memory/memory_peers.h"
#include "model/recovery.h"

namespace kavo::fuzz {
namespace {

constexpr std::uint8_t session = 3;
constexpr std::uint64_t start_ms = 5000;
constexpr std::size_t longest_message = 65'525;  // with the ten bytes that sending it again adds, 16 bits are full
constexpr std::size_t most_effort = 400'000;     // in bytes, so that no input takes long
constexpr std::size_t effort_of_a_message = 100;

class FeedStory {
public:
    explicit FeedStory(ByteView bytes) : input_(bytes) { literal_.left(start_ms); }

    void tell() {
        while (!input_.empty() && effort_ < most_effort) {
            count_step();
            take_step();
            compare();
        }
        ask(0, ~std::uint64_t{0});
    }

private:
    void take_step() {
        switch (input_.below(8)) {
            case 0:
            case 1: return publish(input_.byte());
            case 2: return publish(1388u - 128 + input_.byte());  // fills a datagram, or just not
            case 3: return publish_many();
            case 4: return flush();
            case 5: return pass_time();
            case 6: return arm();
            default: return input_.one_in(4) ? forget() : ask_something();
        }
    }

    // Each message is filled with bytes of its own.
    void publish(std::size_t size) {
        const Bytes message(size, static_cast<std::uint8_t>(literal_.last_number() * 7 + size));
        feed_.publish(message);
        expect(literal_.publish(message));
        effort_ += size + effort_of_a_message;
    }
    void publish_many() {
        const std::size_t size = std::min<std::size_t>(input_.number<std::uint16_t>(), longest_message);
        for (std::size_t left = 1 + (size < 1000 ? input_.byte() : 0u); left > 0; --left) publish(size);
    }
    void expect(const model::Feed::Departures& departures) {
        for (const auto& [datagram, said] : departures) {
            if (said.empty()) expected_.push_back(datagram);
        }
        if (!departures.empty()) literal_.left(clock_.steady_ms());
    }
    void flush() {
        feed_.flush();
        expect(literal_.flush());
    }
    void pass_time() {
        const std::uint64_t ms = 900 + input_.byte();
        clock_.advance_ms(ms);
        feed_.heartbeat_when_idle();
        expect(literal_.heartbeat_when_idle(clock_.steady_ms()));
    }
    void arm() {
        FeedFaults faults;
        faults.drop_every = few();
        faults.drop_next = few();
        faults.dup_every = few();
        faults.dup_next = few();
        faults.reorder_every = few();
        faults.reorder_next = few();
        faults.drop_burst_start = feed_.counters.packets + few();
        faults.drop_burst_count = few();
        feed_.faults = faults;
        using model::Feed;
        literal_.faults[Feed::drop].script = {faults.drop_every, faults.drop_next};
        literal_.faults[Feed::duplicate].script = {faults.dup_every, faults.dup_next};
        literal_.faults[Feed::reorder].script = {faults.reorder_every, faults.reorder_next};
        literal_.burst_start = faults.drop_burst_start;
        literal_.burst_count = faults.drop_burst_count;
    }
    std::uint32_t few() { return static_cast<std::uint32_t>(input_.one_in(3) ? input_.below(6) : 0); }
    void forget() {
        const std::size_t kept = input_.byte();
        feed_.history.trim(kept);
        literal_.forget_all_but(kept);
    }
    void ask_something() {
        const std::uint64_t first = number_near_the_end();
        ask(first, number_near_the_end());
    }
    std::uint64_t number_near_the_end() {
        if (input_.one_in(8)) return input_.number<std::uint64_t>();
        return feed_.last_sequence() + 3 - std::min<std::uint64_t>(feed_.last_sequence() + 3, input_.byte());
    }

    // A receiver of its own for every request.
    void ask(std::uint64_t first, std::uint64_t last) {
        MemoryPeers peers;
        MemoryPeer& receiver = peers.peers[1];
        Retransmission service(feed_, clock_, peers.transport(), session, commentary_);
        RConn& connection = service.open_connection(1);
        service.receive(connection,
                        esesm::build_packet(esesm::PacketType::login_request, client::receiver_login().payload()));
        receiver.received.clear();
        const Bytes range = client::retransmission_payload(first, last);
        service.receive(connection, esesm::build_packet(esesm::PacketType::retransmission_request, range));
        model::Recovery::Receiver logged_in{true};
        require(receiver.received == recovery_.handle(logged_in, {'a', range}, 0).bytes,
                "a receiver is sent again what was published");
        require(receiver.closed == 1, "a receiver that was served is closed");
    }

    void compare() {
        require(datagrams_ == expected_, "the datagrams are those on paper");
        datagrams_.clear();
        expected_.clear();
        require(feed_.last_sequence() == literal_.last_number(), "every message takes a number");
        require(feed_.history.oldest() == literal_.oldest(), "the history holds what it must");
        require(feed_.counters.messages == literal_.last_number() && feed_.counters.packets == literal_.datagrams(),
                "what leaves is counted");
        require(fault_summary(feed_.counters) == literal_.fault_summary(), "faults are counted");
        const auto& [dropped, duplicated, reordered] = literal_.faults;
        require(feed_.faults.drop_next == dropped.script.next && feed_.faults.dup_next == duplicated.script.next &&
                    feed_.faults.reorder_next == reordered.script.next,
                "faults are used up");
        if (literal_.oldest() > literal_.last_number()) return;
        for (const std::uint64_t number : {literal_.oldest(), literal_.last_number()}) {
            require(std::ranges::equal(feed_.message(number), literal_.message(number)), "a message is kept as it was");
        }
    }

    static Clock standing_clock() {
        Clock clock;
        clock.stand_at(start_ms, 0);
        return clock;
    }

    Input input_;
    std::size_t effort_ = 0;
    Clock clock_ = standing_clock();
    Commentary commentary_{[](std::string_view) {}};
    std::vector<Bytes> datagrams_;
    DomFeed feed_{session, clock_,
                  [this](ByteView datagram) { datagrams_.emplace_back(datagram.begin(), datagram.end()); },
                  commentary_};
    model::Feed literal_{session};
    model::Recovery recovery_{literal_, session, nullptr};
    std::vector<Bytes> expected_;
};

void tell(ByteView bytes) {
    FeedStory(bytes).tell();
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::tell);
}

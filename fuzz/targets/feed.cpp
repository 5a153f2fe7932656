// The feed and its history: whatever is published, flushed, damaged, forgotten and asked for again, the datagrams and
// the retransmissions are those of the feed on paper.
#include <algorithm>

#include "client/recovery_client.h"
#include "feed/dom_feed.h"
#include "feed/retransmission.h"
#include "harness/harness.h"
#include "harness/input.h"
#include "harness/literal_feed.h"
#include "memory/memory_peers.h"

namespace kavo::fuzz {
namespace {

constexpr std::uint8_t session = 3;
constexpr std::uint64_t start_ms = 5000;
constexpr std::size_t longest_message = 65'525;  // with the ten bytes that sending it again adds, 16 bits are full
constexpr std::size_t most_effort = 400'000;     // in bytes, so that no input takes long
constexpr std::size_t effort_of_a_message = 100;

class FeedStory {
public:
    explicit FeedStory(ByteView bytes) : input_(bytes) {}

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
        const Bytes message(size, static_cast<std::uint8_t>(literal_.last_number * 7 + size));
        feed_.publish(message);
        literal_.publish(message);
        effort_ += size + effort_of_a_message;
    }
    void publish_many() {
        const std::size_t size = std::min<std::size_t>(input_.number<std::uint16_t>(), longest_message);
        for (std::size_t left = 1 + (size < 1000 ? input_.byte() : 0u); left > 0; --left) publish(size);
    }
    void flush() {
        feed_.flush();
        literal_.flush();
    }
    void pass_time() {
        const std::uint64_t ms = 900 + input_.byte();
        clock_.advance_ms(ms);
        literal_.now_ms += ms;
        feed_.heartbeat_when_idle();
        literal_.heartbeat_when_idle();
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
        literal_.faults = faults;
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
        service.receive(connection, esesm::build_packet(esesm::PacketType::retransmission_request,
                                                        client::retransmission_payload(first, last)));
        Bytes expected = literal_.sent_again(first, last);
        for (const char byte : std::string("\x19\0GAretransmission complete", 27)) {
            expected.push_back(static_cast<std::uint8_t>(byte));
        }
        require(receiver.received == expected, "a receiver is sent again what was published");
        require(receiver.closed == 1, "a receiver that was served is closed");
    }

    void compare() {
        require(datagrams_ == literal_.datagrams, "the datagrams are those on paper");
        datagrams_.clear();
        literal_.datagrams.clear();
        require(feed_.last_sequence() == literal_.last_number, "every message takes a number");
        require(feed_.history.size() == literal_.held_messages.size(), "the history holds what it must");
        const FeedCounters& mine = feed_.counters;
        const FeedCounters& theirs = literal_.counters;
        require(mine.messages == theirs.messages && mine.packets == theirs.packets, "what leaves is counted");
        require(mine.dropped == theirs.dropped && mine.duplicated == theirs.duplicated &&
                    mine.reordered == theirs.reordered,
                "faults are counted");
        require(feed_.faults.drop_next == literal_.faults.drop_next &&
                    feed_.faults.dup_next == literal_.faults.dup_next &&
                    feed_.faults.reorder_next == literal_.faults.reorder_next,
                "faults are used up");
        if (!literal_.held_messages.empty()) compare_history();
    }
    void compare_history() {
        const auto& [oldest, oldest_message] = *literal_.held_messages.begin();
        const auto& [newest, newest_message] = *literal_.held_messages.rbegin();
        require(feed_.history.oldest() == oldest, "the history begins where it must");
        require(std::ranges::equal(feed_.message(oldest), oldest_message), "the oldest message is as it was");
        require(std::ranges::equal(feed_.message(newest), newest_message), "the newest message is as it was");
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
    LiteralFeed literal_{session, start_ms};
};

void tell(ByteView bytes) {
    FeedStory(bytes).tell();
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::tell);
}

// A day of trading in small: fifty clients, a fast market, and every fault there is. What the venue writes down is held
// against what its clients and a receiver of its damaged feed have seen, and it may not grow.
//
// KAVO_SOAK_SECONDS sets how long it lasts. From ten minutes on, everything that has a limit is filled before.
#include <deque>
#include <fstream>

#include "client/feed_handler.h"
#include "engine/meo_layout.h"
#include "feed/dom_feed.h"
#include "session/order_entry.h"
#include "soak/growing_file.h"
#include "soak/stage.h"
#include "soak/trading_client.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t users = 50;
constexpr std::uint32_t products = 2;
constexpr seconds long_enough_to_fill_all{600};

// Standard streams, sockets and files of the venue. Each user may come back before the venue has noticed that the
// connection before has gone.
constexpr std::size_t own_descriptors = 12;

constexpr std::string_view filler = "full";  // in the id of whatever is only sent to fill a stream

// What a message takes that is kept, with its place in the log: one that fills a stream, and a long one of the feed.
constexpr std::size_t filler_bytes =
    esesm::sequenced_size(meo::layout::new_order_response::size) + sizeof(std::uint32_t);
constexpr std::size_t feed_message_bytes = 64;

seconds duration_of_the_run() {
    const char* text = std::getenv("KAVO_SOAK_SECONDS");
    return seconds(text == nullptr ? 60 : std::stol(text));
}

std::string name_of(std::size_t user) {
    return "u" + std::to_string(user);
}

// The books after each message, as the receiver of the feed holds them and as the venue writes them down.
class BookAudit {
public:
    void received(std::uint64_t sequence, std::string line) { compare(received_, written_, sequence, std::move(line)); }
    void written(const std::string& line) {
        if (line.starts_with("{\"mark\":")) return;
        compare(written_, received_, number_behind("{\"seq\":", line), line);
    }
    std::size_t compared() const { return compared_; }
    std::size_t waiting() const { return received_.size() + written_.size(); }

private:
    using Lines = std::unordered_map<std::uint64_t, std::string>;
    void compare(Lines& own, Lines& others, std::uint64_t sequence, std::string line) {
        const auto other = others.find(sequence);
        if (other == others.end()) {
            own.emplace(sequence, std::move(line));
            return;
        }
        if (other->second != line) ADD_FAILURE() << other->second << "\n" << line;
        others.erase(other);
        ++compared_;
    }

    Lines received_;
    Lines written_;
    std::size_t compared_ = 0;
};

class LongRun : public testing::Test {
protected:
    LongRun() {
        handler_.receiver.on_applied = [this](std::uint64_t sequence, std::uint32_t changed) {
            if (changed != 0) books_.received(sequence, handler_.receiver.book().truth_line(sequence, changed));
        };
    }

    // Half a million answers for each user, in one piece: they are stored, and nobody reads them.
    void fill_streams(std::size_t count) {
        const Bytes request =
            esesm::build_packet(esesm::PacketType::unsequenced_data, buy("a").shares(0).at("1.00").bytes());
        constexpr std::size_t batch = 2000;
        const Bytes many = repeated(request, batch);
        for (std::size_t user = 0; user < count; ++user) {
            Peer peer(stage_.port(), Peer::little);
            peer.pour_all(esesm::build_packet(esesm::PacketType::login_request, login(name_of(user)).payload()));
            for (std::size_t sent = 0; sent < SessionStream::limit_messages; sent += batch) {
                peer.pour_all(many);
                follow();
            }
            // What has not been read when the connection ends is lost, so the last of it is waited for.
            const std::uint64_t before = stale_cancels();
            peer.pour_all(esesm::build_packet(esesm::PacketType::unsequenced_data,
                                              cancel(name_of(user) + std::string(filler)).bytes()));
            const auto deadline = steady_clock::now() + patience;
            while (stale_cancels() == before && steady_clock::now() < deadline) follow();
        }
    }
    std::uint64_t stale_cancels() const { return number_behind(" stale_cancels=", stage_.control.ask("stats")); }

    // What has come on the feed and into the files.
    void follow() {
        for (int i = 0; i < 200 && handler_.take_datagram(milliseconds(0)); ++i) continue;
        order_truth_.read_lines([this](const std::string& line) {
            if (line.find(filler) == std::string::npos) ledger_.written(line);
        });
        book_truth_.read_lines([this](const std::string& line) { books_.written(line); });
    }

    void trade_until(steady_clock::time_point end) {
        while (steady_clock::now() < end) {
            trade_once();
            misbehave();
        }
    }

    void trade_once() {
        handler_.take_datagram(milliseconds(1));
        follow();
        for (TradingClient& client : clients_) {
            client.listen();
            client.send_heartbeat();
        }
        // Every client about ten times a second, however fast the loop is.
        const auto now = steady_clock::now();
        if (now < next_act_) return;
        next_act_ = now + milliseconds(100) / users;
        clients_[turn_++ % users].act(handler_.receiver.book(), products);
    }

    // On top of what the scenario does: lost connections, and silences of the venue.
    void misbehave() {
        const auto now = steady_clock::now();
        if (now < next_misbehaviour_) return;
        next_misbehaviour_ = now + seconds(2);
        switch (misbehaviours_++ % 8) {
            case 0: clients_[turn_ % users].reset(); break;
            case 2: stage_.control.ask("disconnect"); break;
            case 4: stage_.control.ask("lapse 400"); break;
            case 5: stage_.control.ask("drop 5"); break;
            case 6: stage_.control.ask("reorder 2"); break;
            default: break;
        }
        descriptors_ = std::max(descriptors_, open_descriptors(stage_.pid()));
    }

    // By how much what is kept for the clients and the receivers has grown since the trading began. In a stream that
    // was full, each message takes the place of one that filled it.
    std::size_t kept_bytes(std::size_t full) const {
        std::size_t bytes = feed_message_bytes *
                            std::min<std::size_t>(handler_.receiver.next_sequence(), DomFeed::history_limit_messages);
        for (std::size_t user = 0; user < users; ++user) {
            const TradingClient& client = clients_[user];
            bytes += client.stored_bytes();
            if (user < full) bytes -= filler_bytes * client.messages();
        }
        return bytes;
    }

    // Nobody trades any more, no fault is armed, and everybody has everything.
    void come_to_rest() {
        for (const char* command : {"pause", "lapse 0", "drop_every 0", "dup_every 0", "reorder_every 0", "mark end"}) {
            stage_.control.ask(command);
        }
        const auto deadline = steady_clock::now() + 3 * patience;
        // Scripted cancels may still be on their way, and come within 300 ms.
        for (int round = 0; round < 4; ++round) {
            for (TradingClient& client : clients_) client.ask_again();
            const auto end = steady_clock::now() + milliseconds(250);
            while (steady_clock::now() < end || !everybody_has_caught_up()) {
                ASSERT_LT(steady_clock::now(), deadline);
                handler_.take_datagram(milliseconds(1));
                follow();
                for (TradingClient& client : clients_) {
                    client.listen();
                    client.send_heartbeat();
                }
            }
        }
        stage_.control.ask("mark end");
        ASSERT_TRUE(handler_.follow_to(stage_.control.next_sequence() - 1));
        follow();
    }
    bool everybody_has_caught_up() const {
        return std::all_of(clients_.begin(), clients_.end(),
                           [](const TradingClient& client) { return client.caught_up(); });
    }

    void audit_orders(const std::string& statistics) {
        // A cancel that lost its race is answered like one that came too late, but is not written down as one.
        std::map<std::string, std::size_t> unmatched = ledger_.unmatched();
        EXPECT_EQ(unmatched["cancel_reject told"], number_behind(" race_fills=", statistics));
        unmatched.erase("cancel_reject told");
        EXPECT_TRUE(unmatched.empty()) << ledger_.examples();
        for (const auto& [event, counter] : {std::pair<std::string, std::string>{"new", " accepts="},
                                             {"fill", " fills="},
                                             {"cancel", " cancels="},
                                             {"replace", " replaces="},
                                             {"reject", " rejects="}}) {
            EXPECT_EQ(ledger_.counts[event], number_behind(counter, " " + statistics)) << event;
            EXPECT_GT(ledger_.counts[event], 0u) << event;
        }
        for (const auto& [event, count] : ledger_.counts) report(event, count);
    }

    void audit_feed() const {
        const FeedReceiver::Counters& counters = handler_.receiver.counters;
        EXPECT_GT(counters.gaps, 0u);
        EXPECT_EQ(counters.refreshes, 0u) << "the receiver has fallen behind the history";
        EXPECT_EQ(counters.unconnected, 0u);
        EXPECT_EQ(books_.waiting(), 0u);
        report("messages of the feed", handler_.receiver.next_sequence() - 1);
        report("gaps in it", counters.gaps);
        report("books compared", books_.compared());
    }

    void audit_streams() const {
        std::uint64_t logins = 0;
        std::uint64_t gaps = 0;
        for (const TradingClient& client : clients_) {
            EXPECT_EQ(client.repeated(), 0u);
            logins += client.logins();
            gaps += client.replayed_gaps();
        }
        EXPECT_GT(gaps, 0u);
        report("logins", logins);
        report("gaps in the streams, replayed", gaps);
    }

    TemporaryFile orders_file_;
    TemporaryFile books_file_;
    Stage stage_{
        {"--symbols", "AAPL:190.00,MSFT:410.00", "--interval-ms", "1", "--acod", "--truth-out", books_file_.path(),
         "--drop-every", "50", "--dup-every", "40", "--reorder-every", "30", "--drop-burst", "1000:20"},
        unheard,
        {{"BENCH_ORDER_TRUTH", orders_file_.path()},
         {"KAVO_ME_SCENARIO",
          "name=soak,disconnect_after=500,lapse_ms=300,reject_every=11,partial_fill_every=3,"
          "fill_on_cancel_every=5,unsolicited_cancel_every=7,replace_reject_every=4"}}};
    FeedHandler handler_{stage_.feed, stage_.retransmission_port()};
    GrowingFile order_truth_{orders_file_.path()};
    GrowingFile book_truth_{books_file_.path()};
    BookAudit books_;
    Ledger ledger_;
    std::deque<TradingClient> clients_;
    std::size_t turn_ = 0;
    std::size_t misbehaviours_ = 0;
    steady_clock::time_point next_act_;
    steady_clock::time_point next_misbehaviour_;
    std::size_t descriptors_ = 0;
};

TEST_F(LongRun, OfFiftyClientsUnderEveryFaultAgreesWithTheTruthAndDoesNotGrow) {
    const seconds duration = duration_of_the_run();
    const std::size_t full = duration >= long_enough_to_fill_all ? users : 2;
    fill_streams(full);
    for (std::size_t user = 0; user < users; ++user) clients_.emplace_back(stage_.port(), name_of(user), ledger_);

    const auto start = steady_clock::now();
    trade_until(start + duration / 3);
    const std::size_t memory = resident_bytes(stage_.pid());
    const std::size_t kept = kept_bytes(full);
    const std::size_t descriptors = std::exchange(descriptors_, 0);
    const auto busy = processor_time(stage_.pid());
    const auto middle = steady_clock::now();
    trade_until(start + duration);
    const double share = in_ms(processor_time(stage_.pid()) - busy) / in_ms(steady_clock::now() - middle) * 100;
    const std::size_t memory_at_the_end = resident_bytes(stage_.pid());
    const std::size_t more = kept_bytes(full) - kept;
    come_to_rest();

    report("seconds", static_cast<std::size_t>(duration.count()));
    report("processor time of the venue", share, "% of a core");
    report("resident bytes after a third of it", memory);
    report("resident bytes at the end", memory_at_the_end);
    report("of which are longer messages, or more of them", more);
    report("most descriptors in the first third", descriptors);
    report("most descriptors after that", descriptors_);
    EXPECT_LE(std::max(descriptors, descriptors_), own_descriptors + 2 * users);
    if (!sanitized) {
        EXPECT_LT(memory_at_the_end, memory + more + more / 4 + (4 << 20));
    }

    audit_feed();
    audit_streams();
    audit_orders(stage_.control.ask("stats"));
    stage_.stop();
}

}  // namespace
}  // namespace kavo::test

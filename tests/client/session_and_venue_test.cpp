// A session and a venue that meet in memory: bytes go from one to the other, and no socket is in between.
#include <gtest/gtest.h>

#include <string>

#include "client/responses.h"
#include "client/session.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// A user of a venue in memory, on one connection after the other.
class User {
public:
    User(Venue& venue, const std::string& name) : venue_(venue), session(login(name, 1)) { connect(); }

    void connect() {
        handle_ = venue_.connect();
        taken_ = 0;
        session.connected(venue_.clock.steady_ms());
        session.log_in();
        exchange();
    }
    // The connection ends on both sides; what the venue says in the meantime waits in the user's stream.
    void vanish() {
        session.log_out();
        exchange();
        session.disconnected();
    }
    // Everything that either side has to say to the other reaches it.
    void exchange() {
        const std::uint64_t now_ms = venue_.clock.steady_ms();
        const ByteView said = session.to_send();
        const std::size_t size = said.size();
        venue_.order_entry.receive(handle_, said);
        session.sent(size, now_ms);
        venue_.pass();
        const Bytes& received = venue_.connection(handle_).received;
        session.receive(ByteView(received).subspan(taken_), now_ms);
        taken_ = received.size();
        while (const auto arrival = session.next()) take(*arrival);
    }

    // What the user has heard since the last call.
    std::string heard() { return joined(std::exchange(lines_, {})); }

private:
    void take(const Session::Arrival& arrival) {
        if (arrival.kind == Session::Arrival::Kind::message) lines_.push_back(packet_text(arrival.packet));
        if (arrival.kind == Session::Arrival::Kind::hole) lines_.push_back("hole");
    }

    Venue& venue_;
    ClientHandle handle_ = 0;
    std::size_t taken_ = 0;
    std::vector<std::string> lines_;

public:
    Session session;
};

TEST(SessionWithAVenue, TradesAndHearsOfItsOrders) {
    Venue venue;
    User alice(venue, "alice");
    EXPECT_EQ(alice.heard(), "1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
    alice.session.send(buy("b1").at("1.00"));
    alice.exchange();
    EXPECT_EQ(alice.heard(),
              "3: NR b1 accepted #1000 100@1 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch");
}

TEST(SessionWithAVenue, HearsWhatItHasMissedWhenItComesBack) {
    Venue venue;
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.session.send(buy("b1").at("1.00"));
    alice.exchange();
    alice.heard();
    alice.vanish();
    bob.session.send(sell("s1").at("1.00"));
    bob.exchange();
    EXPECT_EQ(alice.heard(), "");
    alice.connect();
    EXPECT_EQ(alice.heard(), "6: E1 b1 100@1 buy added AC match 1 exec 1");
    EXPECT_EQ(alice.session.next_sequence(), 7u);
}

TEST(SessionWithAVenue, LeavesDuringALapseAndMissesNothing) {
    Venue venue;
    User alice(venue, "alice");
    alice.heard();
    venue.bench.start_lapse(venue.clock.steady_ms(), 3'500);
    alice.session.send(buy("b1").at("1.00"));
    for (int halves = 0; halves < 6; ++halves) {
        alice.exchange();
        venue.clock.advance_ms(500);
        alice.session.check_time(venue.clock.steady_ms());
    }
    EXPECT_EQ(alice.session.end(), Session::End::silence);
    EXPECT_EQ(alice.heard(), "");
    alice.vanish();
    alice.connect();
    EXPECT_EQ(alice.heard(),
              "3: NR b1 accepted #1000 100@1 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch");
}

TEST(SessionWithAVenue, FindsTheHoleThatALapseLeavesAndFillsIt) {
    Venue venue;
    User alice(venue, "alice");
    alice.heard();
    venue.bench.start_lapse(venue.clock.steady_ms(), 1'000);
    alice.session.send(buy("b1").at("1.00"));
    alice.exchange();
    EXPECT_EQ(alice.heard(), "");
    venue.clock.advance_ms(1'000);
    alice.session.send(cancel("b1"));
    alice.exchange();
    EXPECT_EQ(alice.heard(), "hole | hole");
    EXPECT_EQ(alice.session.end(), Session::End::hole);
    alice.session.log_in();
    alice.exchange();
    EXPECT_EQ(alice.heard(),
              "3: NR b1 accepted #1000 100@1 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch | "
              "6: CR xb1 of b1 accepted #1000 | 7: XN b1 #1000 leaves 0 'U'");
    EXPECT_EQ(alice.session.end(), Session::End::none);
}

TEST(SessionWithAVenue, IsKeptByItsHeartbeatsAlone) {
    Venue venue;
    User alice(venue, "alice");
    for (int halves = 0; halves < 20; ++halves) {
        venue.clock.advance_ms(500);
        alice.session.check_time(venue.clock.steady_ms());
        alice.exchange();
    }
    EXPECT_EQ(alice.session.end(), Session::End::none);
    EXPECT_EQ(venue.connection(0).closed, 0);
}

}  // namespace
}  // namespace kavo::test

#include "client/recovery.h"

#include <gtest/gtest.h>

#include <initializer_list>

#include "feed/dom_messages.h"

namespace kavo::client {
namespace {

const Bytes accepted = build(esesm::LoginResponse{{{esesm::LoginStatus::successful, 1, 12}}});

Bytes goodbye(std::string_view text) {
    return build(esesm::Goodbye{esesm::GoodbyeReason::done, text});
}

Bytes again(std::uint64_t sequence) {
    const Bytes message(2, 0xEE);
    Bytes packet(esesm::sequenced_size(message.size()));
    esesm::build_sequenced(packet, sequence, message);
    return packet;
}

// A message of a refresh, which says no more than its type.
Bytes state_as_of(std::uint8_t sequence) {
    return esesm::build_packet(esesm::PacketType::unsequenced_data, Bytes{'r', sequence, 0, 0, 0, 0, 0, 0, 0, 0x05});
}
Bytes end_of_state(std::uint8_t type) {
    return esesm::build_packet(esesm::PacketType::unsequenced_data, Bytes{'E', type});
}

void hear(Recovery& recovery, std::initializer_list<Bytes> packets) {
    for (const Bytes& packet : packets) recovery.receive(packet);
}

TEST(Recovery, SaysALoginForTheFeedAndOneRequest) {
    const Recovery recovery = Recovery::of_messages(3, 5);
    const Bytes& opening = recovery.opening();
    const auto login = esesm::read_packet(opening);
    ASSERT_TRUE(login);
    EXPECT_EQ(login->type, esesm::PacketType::login_request);
    const auto record = esesm::read_login_request(login->payload);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->application_protocol_version, "DoM1.3");
    const Bytes request(opening.begin() + 3 + static_cast<std::ptrdiff_t>(login->payload.size()), opening.end());
    EXPECT_EQ(request, (Bytes{17, 0, 'a', 3, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Recovery, AsksForASnapshotByItsType) {
    const Recovery recovery = Recovery::of_state('O');
    const Bytes& opening = recovery.opening();
    ASSERT_GE(opening.size(), 5u);
    EXPECT_EQ(Bytes(opening.end() - 5, opening.end()), (Bytes{3, 0, 'U', 'R', 'O'}));
}

TEST(Recovery, IsOverWithTheGoodbyeBehindTheMessages) {
    Recovery recovery = Recovery::of_messages(3, 4);
    hear(recovery, {accepted, again(3), again(4)});
    EXPECT_FALSE(recovery.over());
    hear(recovery, {goodbye("retransmission complete")});
    EXPECT_TRUE(recovery.over());
    EXPECT_EQ(recovery.problem(), "");
    ASSERT_EQ(recovery.messages.size(), 2u);
    EXPECT_EQ(recovery.messages[0].sequence, 3u);
    EXPECT_EQ(recovery.messages[1].sequence, 4u);
    EXPECT_EQ(recovery.messages[1].message, Bytes(2, 0xEE));
}

TEST(Recovery, KeepsASnapshotAndWhatItIsAsOf) {
    Recovery recovery = Recovery::of_state('O');
    hear(recovery, {accepted, state_as_of(7), state_as_of(7), end_of_state('O'), goodbye("refresh complete")});
    EXPECT_TRUE(recovery.over());
    EXPECT_EQ(recovery.problem(), "");
    EXPECT_EQ(recovery.snapshot.as_of, 7u);
    ASSERT_EQ(recovery.snapshot.messages.size(), 2u);
    EXPECT_EQ(recovery.snapshot.messages[0], Bytes{0x05});
    EXPECT_EQ(recovery.snapshot.bytes, 13u + 13u + 5u);
}

TEST(Recovery, TakesBytesInAnyPieces) {
    Recovery recovery = Recovery::of_messages(3, 3);
    Bytes all = accepted;
    for (const Bytes& packet : {again(3), goodbye("retransmission complete")}) {
        all.insert(all.end(), packet.begin(), packet.end());
    }
    for (const std::uint8_t byte : all) recovery.receive({&byte, 1});
    EXPECT_TRUE(recovery.over());
    EXPECT_EQ(recovery.problem(), "");
    EXPECT_EQ(recovery.messages.size(), 1u);
}

TEST(RecoveryProblem, IsALoginThatIsNotAccepted) {
    Recovery recovery = Recovery::of_messages(1, 2);
    hear(recovery, {build(esesm::LoginResponse{{{esesm::LoginStatus::invalid_start_sequence, 1, 12}}})});
    EXPECT_TRUE(recovery.over());
    EXPECT_EQ(recovery.problem(), "instead of a login: login rejected 'N', engine 1, highest 12");
}

TEST(RecoveryProblem, IsAConnectionThatEndsTooEarly) {
    Recovery recovery = Recovery::of_messages(1, 2);
    hear(recovery, {accepted, again(1)});
    recovery.disconnected();
    EXPECT_EQ(recovery.problem(), "a reply without its end behind packet 1");
    Recovery complete = Recovery::of_messages(1, 1);
    hear(complete, {accepted, again(1), goodbye("retransmission complete")});
    complete.disconnected();
    EXPECT_EQ(complete.problem(), "");
}

TEST(RecoveryProblem, IsAGoodbyeOfAnotherKind) {
    Recovery recovery = Recovery::of_state('O');
    hear(recovery, {accepted, goodbye("retransmission complete")});
    EXPECT_EQ(recovery.problem(), "a reply that ends with: goodbye 'A' retransmission complete");
}

TEST(RecoveryProblem, IsARefreshWithoutItsEnd) {
    Recovery recovery = Recovery::of_state('O');
    hear(recovery, {accepted, state_as_of(7), goodbye("refresh complete")});
    EXPECT_EQ(recovery.problem(), "a reply that ends with: goodbye 'A' refresh complete");
}

TEST(RecoveryProblem, IsTheEndOfAnotherRefresh) {
    Recovery recovery = Recovery::of_state('O');
    hear(recovery, {accepted, state_as_of(7), end_of_state('s')});
    EXPECT_EQ(recovery.problem(), "in a refresh: end of 's'");
}

TEST(RecoveryProblem, IsAnythingButAMessageAmongMessages) {
    Recovery recovery = Recovery::of_messages(1, 2);
    hear(recovery, {accepted, again(1), state_as_of(7)});
    EXPECT_EQ(recovery.problem(), "among messages sent again: as of 7: unknown message of 1 bytes");
}

}  // namespace
}  // namespace kavo::client

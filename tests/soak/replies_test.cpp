// Receivers that cannot wait for the end of a reply, and go on talking: whatever stands behind their request, and
// arrives before, while or after the reply leaves, costs them none of it.
#include <poll.h>

#include <array>

#include "client/recovery_client.h"
#include "soak/receiver.h"
#include "soak/stage.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using esesm::PacketType;
using std::chrono::steady_clock;

constexpr std::uint64_t messages = 60'000;
constexpr std::size_t receivers = sanitized ? 100 : 1000;

// What receivers say behind their request.
const std::array<Bytes, 6> chatter = {
    esesm::build_packet(PacketType::client_heartbeat, {}),
    esesm::build_packet(PacketType::logout_request, {}),
    esesm::build_packet(static_cast<PacketType>('?'), Bytes(100)),
    Bytes(5000),             // nothing but lengths of zero
    Bytes{0xFF, 0xFF, 'U'},  // a packet that never becomes whole
    esesm::build_packet(PacketType::retransmission_request, retransmission_payload(1, messages)),
};

// One receiver, who says a thing more in the same write as the request, and another one at each look at the reply.
// Gives up when nothing comes for the usual patience.
void converse(Receiver& receiver, Bytes request, std::size_t number) {
    const Bytes& said = chatter[number % chatter.size()];
    append(request, said);
    receiver.peer.pour_all(request);
    auto deadline = steady_clock::now() + patience;
    while (receiver.open() && steady_clock::now() < deadline) {
        receiver.peer.pour(chatter[number++ % chatter.size()]);
        if (receiver.take(65'536) > 0) {
            deadline = steady_clock::now() + patience;
        } else if (receiver.open()) {
            pollfd polled{receiver.peer.socket(), POLLIN, 0};
            poll(&polled, 1, 1000);
        }
    }
}

TEST(Replies, SurviveWhateverTheirReceiversSayBehindTheRequest) {
    Stage stage;
    Peer user(stage.port(), Peer::little);
    user.log_in(login("mill"));
    constexpr std::size_t orders = messages / feed_messages_an_order;
    enter_and_cancel(user, 0, orders);
    stage.await_counter(" cancels=", orders, user);
    const Bytes expected = whole_reply(stage.retransmission_port(), 1, messages);
    const Bytes request = login_and_request(1, messages);
    const auto start = steady_clock::now();
    std::size_t cut_short = 0;
    std::size_t broken_off = 0;
    for (std::size_t i = 0; i < receivers; ++i) {
        Receiver receiver(stage.retransmission_port(), expected, i % 2 == 0 ? 0 : 65'536);
        converse(receiver, request, i);
        cut_short += receiver.wrong() || receiver.taken() < expected.size();
        broken_off += !receiver.served();
    }
    report("bytes of the reply", expected.size());
    report("receivers", receivers);
    report("of which did not get the whole reply", cut_short);
    report("of which did not get it and an end in good order", broken_off);
    report("time", in_ms(steady_clock::now() - start) / 1000, "s");
    EXPECT_EQ(cut_short, 0u);
    EXPECT_EQ(broken_off, 0u);
    stage.stop();
}

}  // namespace
}  // namespace kavo::test

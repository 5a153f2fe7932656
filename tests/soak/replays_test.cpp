// Streams as long as a stream can be, and users who read them as they like: a replay is whole, nobody else waits for
// it, and nobody is ever sent a part of a packet.
#include <poll.h>

#include <map>

#include "engine/meo_layout.h"
#include "session/order_entry.h"
#include "soak/bystanders.h"

namespace kavo::test {
namespace {

using esesm::PacketType;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t orders_that_fill_it = SessionStream::limit_messages / stream_messages_an_order;
constexpr milliseconds longest_wait{250};
constexpr milliseconds heartbeat_interval{500};
constexpr seconds longest_gap{3};  // within a replay

bool has_type(ByteView packet, PacketType type) {
    return get(packet, esesm::layout::packet::type) == static_cast<char>(type);
}

Bytes login_packet(const Login& login) {
    return esesm::build_packet(PacketType::login_request, login.payload());
}

// A user who is replayed a stream: counts what comes in its turn. Whenever it begins again, so does the count.
class Reader {
public:
    //   first, last  the numbers of the stream that the venue still has
    Reader(std::uint16_t port, std::uint64_t first, std::uint64_t last) : peer(port), first_(first), last_(last) {}

    // Takes what has come, so many bytes of it at most; tells how many there were.
    std::size_t take(std::size_t most) {
        const std::size_t count = peer.take(most);
        while (const auto packet = peer.next_packet()) read(*packet);
        keep_up();
        return count;
    }

    std::uint64_t in_turn() const { return in_turn_; }          // messages
    std::uint64_t out_of_turn() const { return out_of_turn_; }  // since the beginning
    bool complete() const { return complete_; }                 // the last of them was followed by the end of a replay
    // How long nothing of the stream has come; for ever when the connection has ended.
    steady_clock::duration silence() const {
        return peer.open() ? steady_clock::now() - heard_ : steady_clock::duration::max();
    }

    Peer peer;

private:
    void read(ByteView packet) {
        if (has_type(packet, PacketType::replay_complete)) complete_ = first_ + in_turn_ == last_ + 1;
        if (has_type(packet, PacketType::server_heartbeat)) return;
        const std::uint64_t sequence = sequence_of(packet);
        if (sequence == 0) return;
        heard_ = steady_clock::now();
        complete_ = false;
        if (sequence == first_) in_turn_ = 0;
        ++(sequence == first_ + in_turn_ ? in_turn_ : out_of_turn_);
    }
    void keep_up() {
        const auto now = steady_clock::now();
        if (now - spoken_ < heartbeat_interval) return;
        peer.send_heartbeat();
        spoken_ = now;
    }

    std::uint64_t first_;
    std::uint64_t last_;
    std::uint64_t in_turn_ = 0;
    std::uint64_t out_of_turn_ = 0;
    bool complete_ = false;
    steady_clock::time_point spoken_ = steady_clock::now();
    steady_clock::time_point heard_ = spoken_;
};

class Replays : public testing::Test {
protected:
    Replays() {
        {
            Peer user(stage_.port(), Peer::little);
            user.log_in(login("mill"));
            enter_and_cancel(user, 0, orders_that_fill_it);
            stage_.await_counter(" cancels=", orders_that_fill_it, user);
            user.log_out();
        }
        last_ = 2 + orders_that_fill_it * stream_messages_an_order;  // behind the session and the symbol
        first_ = last_ - SessionStream::limit_messages + 1;
    }
    Login from_the_start() const { return login("mill", 1); }

    // Reads the whole stream, and pauses whenever `burst` bytes of it have come.
    void expect_whole_replay(const std::string& what, std::size_t bytes_per_second, std::size_t burst,
                             milliseconds pause) {
        Reader reader(stage_.port(), first_, last_);
        reader.peer.log_in(from_the_start());
        Pace pace(bytes_per_second);
        const auto start = steady_clock::now();
        std::size_t since_pause = 0;
        while (!reader.complete() && reader.silence() < longest_gap) {
            const std::size_t due = std::min(pace.due(), burst - since_pause);
            const std::size_t count = due == 0 ? 0 : reader.take(due);
            pace.use(count);
            since_pause += count;
            if (since_pause == burst) poll(nullptr, 0, static_cast<int>(pause.count()));
            since_pause %= burst;
            if (count == 0) poll(nullptr, 0, 1);
        }
        report("messages in their turn, " + what, reader.in_turn());
        report("time", in_ms(steady_clock::now() - start) / 1000, "s");
        EXPECT_EQ(reader.in_turn(), SessionStream::limit_messages);
        EXPECT_EQ(reader.out_of_turn(), 0u);
        EXPECT_TRUE(reader.complete());
        reader.peer.log_out();
    }

    Stage stage_{{"--quiet"}};
    std::uint64_t first_ = 0;
    std::uint64_t last_ = 0;
};

constexpr std::size_t full_speed = 10'000'000'000;
constexpr std::size_t no_pauses = full_speed;

TEST_F(Replays, OfHalfAMillionMessagesAreWholeForEveryReader) {
    Asker asker(stage_.port());
    expect_whole_replay("at full speed", full_speed, no_pauses, milliseconds(0));
    expect_whole_replay("at 5 MB/s", 5'000'000, no_pauses, milliseconds(0));
    expect_whole_replay("with pauses", full_speed, 3'000'000, milliseconds(400));
    expect_answers_within(longest_wait, asker, "an answer beside the replays");
    stage_.stop();
}

// Each login takes the place of the one before it, and the last of them has its replay in the end.
TEST_F(Replays, AskedForByManyLoginsInOneWriteKeepNobodyWaiting) {
    constexpr std::size_t logins = 250;
    Asker asker(stage_.port());
    Reader reader(stage_.port(), first_, last_);
    reader.peer.pour_all(repeated(login_packet(from_the_start()), logins));
    const auto deadline = steady_clock::now() + patience;
    while (reader.silence() < longest_gap && steady_clock::now() < deadline) {
        if (reader.take(full_speed) == 0) poll(nullptr, 0, 1);
    }
    EXPECT_EQ(reader.in_turn(), SessionStream::limit_messages);
    EXPECT_EQ(reader.out_of_turn(), 0u);
    EXPECT_TRUE(reader.complete());
    expect_answers_within(longest_wait, asker, "an answer beside many logins");
    stage_.stop();
}

// A message of each type has always the same size, so that whatever stands between two of them shows.
bool is_whole(ByteView packet) {
    namespace layout = meo::layout;
    static const std::map<std::string_view, std::size_t> sizes = {{"NR", layout::new_order_response::size},
                                                                  {"O1", layout::order_accepted::size},
                                                                  {"P1", layout::order_resting::size},
                                                                  {"CR", layout::cancel_response::size},
                                                                  {"XN", layout::order_cancelled::size}};
    constexpr std::size_t header = esesm::layout::sequenced_packet::header_size;
    if (has_type(packet, PacketType::server_heartbeat)) return packet.size() == esesm::server_heartbeat.size();
    if (!has_type(packet, PacketType::sequenced_data) || packet.size() < header + layout::type.size) return false;
    const auto size = sizes.find(as_text(packet.subspan(header, layout::type.size)));
    return size != sizes.end() && packet.size() == header + size->second;
}

// A client who enters orders and cancels them, and reads the answers when it pleases.
class LazyReader {
public:
    explicit LazyReader(std::uint16_t port) : peer_(port, Peer::little) {
        peer_.log_in(login("lazy"));
        for (; last_ < 2; ++last_) peer_.next_packet(patience);  // the session and the symbol
    }

    void enter(std::size_t orders) {
        enter_and_cancel(peer_, entered_, orders);
        entered_ += orders;
    }
    // Waits until all of them have been answered.
    void await_answers(const Stage& stage) { stage.await_counter(" cancels=", entered_, peer_); }
    // So many packets at most, until none comes for so long, or one that is none.
    void read(std::size_t most, milliseconds longest) {
        for (std::size_t i = 0; i < most && !torn_; ++i) {
            const auto packet = peer_.next_packet(longest);
            if (!packet) return;
            const std::uint64_t sequence = sequence_of(*packet);
            torn_ = !is_whole(*packet) || (sequence != 0 && sequence <= last_);
            if (sequence == 0 || torn_) continue;
            last_ = sequence;
            ++read_;
        }
    }

    bool torn() const { return torn_; }
    std::size_t entered() const { return entered_; }  // orders
    std::size_t messages_read() const { return read_; }
    std::size_t messages_sent() const { return entered_ * stream_messages_an_order; }
    bool up_to_date() const { return last_ == 2 + messages_sent(); }

private:
    Peer peer_;
    std::size_t entered_ = 0;
    std::size_t read_ = 0;
    std::uint64_t last_ = 0;
    bool torn_ = false;
};

// There is room for a part of the answers only. What is lost is lost whole.
TEST(UnreadAnswers, AreNeverTornOnceTheirClientReads) {
    constexpr std::size_t unread = 25'000;  // orders, each with its cancel
    constexpr std::size_t batch = 50;
    Stage stage({"--quiet"});
    LazyReader client(stage.port());
    client.enter(unread);
    client.await_answers(stage);
    while (client.entered() < 2 * unread && !client.torn()) {
        client.enter(batch);
        client.read(2 * batch, milliseconds(0));
    }
    // Everything that is still on its way; then there is room for all the answers again.
    client.await_answers(stage);
    client.read(client.messages_sent(), milliseconds(500));
    client.enter(1);
    client.read(stream_messages_an_order, milliseconds(patience));
    report("messages that were sent", client.messages_sent());
    report("of which were read", client.messages_read());
    EXPECT_FALSE(client.torn());
    EXPECT_LT(client.messages_read(), client.messages_sent());
    EXPECT_TRUE(client.up_to_date());
    stage.stop();
}

}  // namespace
}  // namespace kavo::test

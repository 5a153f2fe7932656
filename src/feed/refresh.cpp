// A snapshot of the venue's present state, as of a sequence number: whoever applies it goes on with the next message.
#include "common/text.h"
#include "feed/dom_messages.h"
#include "feed/retransmission.h"

namespace kavo {

namespace {

bool is_known(RefreshType type) {
    switch (type) {
        case RefreshType::all:
        case RefreshType::definitions:
        case RefreshType::system_state:
        case RefreshType::trading_status: return true;
    }
    return false;
}

// The messages of one reply, each in a packet of its own.
class Snapshot {
public:
    explicit Snapshot(std::uint64_t as_of) : as_of_(as_of) {}

    // The message as it was built; `feed` stamps it.
    void add(const DomFeed& feed, ByteView message) {
        begin(message);
        feed.stamp(MutableBytes(payload_).subspan(layout::refresh_message::header_size));
        add_packet(payload_);
    }
    void add_unstamped(ByteView message) {
        begin(message);
        add_packet(payload_);
    }
    void end(RefreshType type) {
        namespace at = layout::refresh_end;
        payload_.resize(at::size);
        put(payload_, at::end, 'E');
        put(payload_, at::refresh_type, static_cast<char>(type));
        add_packet(payload_);
    }
    ByteView bytes() const { return bytes_; }

private:
    void begin(ByteView message) {
        namespace at = layout::refresh_message;
        payload_.resize(at::header_size);
        put(payload_, at::reply, 'r');
        put(payload_, at::as_of, as_of_);
        payload_.insert(payload_.end(), message.begin(), message.end());
    }
    void add_packet(ByteView payload) {
        const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, payload);
        bytes_.insert(bytes_.end(), packet.begin(), packet.end());
    }

    std::uint64_t as_of_;
    Bytes payload_;
    Bytes bytes_;
};

void build_state(const DomFeed::StateBuilders& state, RefreshType type, const DomFeed::MessageSink& sink) {
    const bool all = type == RefreshType::all;
    if (all || type == RefreshType::system_state) state.system_state(sink);
    if (all || type == RefreshType::definitions) state.series_definitions(sink);
    if (all || type == RefreshType::trading_status) state.series_trading_status(sink);
    if (all) state.resting_orders(sink);
}

}  // namespace

void Retransmission::refresh(RConn& connection, ByteView payload) {
    namespace at = layout::refresh_request;
    if (!connection.logged_in || payload.size() < at::min_size || get(payload, at::request) != 'R') {
        return say_goodbye(connection, esesm::GoodbyeReason::bad_packet, "unknown request");
    }
    const auto type = static_cast<RefreshType>(get(payload, at::refresh_type));
    if (!is_known(type)) {
        return say_goodbye(connection, esesm::GoodbyeReason::bad_packet, "unknown refresh type");
    }
    const std::uint64_t as_of = feed_.last_sequence();
    Snapshot snapshot(as_of);
    snapshot.add_unstamped(build(dom::SystemTime{static_cast<std::uint32_t>(clock_.wall_ns() / ns_per_second)}));
    build_state(feed_.state, type, [&](ByteView message) { snapshot.add(feed_, message); });
    snapshot.end(type);
    send(connection, snapshot.bytes());
    commentary_.say("bench: refresh '%c' served as of seq %llu (%zu bytes)\n", static_cast<char>(type),
                    printable(as_of), snapshot.bytes().size());
    ++feed_.counters.refreshes;
    say_goodbye(connection, esesm::GoodbyeReason::done, "refresh complete");
}

}  // namespace kavo

#include "kavo/wire/recovery_talk.h"

#include <algorithm>
#include <array>
#include <utility>

#include "feed/dom_messages.h"
#include "feed/recovery_layout.h"
#include "kavo/basics/now.h"

namespace kavo::companion {

namespace {

using esesm::GoodbyeReason;
using esesm::LoginStatus;

constexpr std::uint64_t ns_per_second = 1'000'000'000;

LoginStatus check(const esesm::LoginRequest& request) {
    if (request.session_protocol_version != esesm::session_protocol) return LoginStatus::incompatible_session;
    if (!request.application_protocol_version.starts_with("DoM")) return LoginStatus::incompatible_application;
    if (request.entries.size() != 1) return LoginStatus::invalid_engine_count;
    if (request.entries.front().requested_sequence != 0) return LoginStatus::invalid_start_sequence;
    return LoginStatus::successful;
}

bool is_known(RefreshType type) {
    constexpr std::array known{RefreshType::all, RefreshType::definitions, RefreshType::system_state,
                               RefreshType::trading_status};
    return std::ranges::find(known, type) != known.end();
}

Bytes refresh_packet(std::uint64_t as_of, ByteView message) {
    namespace at = layout::refresh_message;
    Bytes payload(at::header_size);
    put(payload, at::reply, 'r');
    put(payload, at::as_of, as_of);
    payload.insert(payload.end(), message.begin(), message.end());
    return esesm::build_packet(esesm::PacketType::unsequenced_data, payload);
}

Bytes refresh_end_packet(RefreshType type) {
    namespace at = layout::refresh_end;
    Bytes payload(at::size);
    put(payload, at::end, 'E');
    put(payload, at::refresh_type, static_cast<char>(type));
    return esesm::build_packet(esesm::PacketType::unsequenced_data, payload);
}

}  // namespace

Bytes RecoveryTalk::take(ByteView bytes, PublishedFeed& feed) {
    said_.take(bytes);
    while (!over_) {
        const auto packet = said_.next();
        if (!packet) break;
        take_packet(*esesm::read_packet(*packet), feed);
    }
    return std::exchange(answer_, {});
}

Bytes RecoveryTalk::time_out() {
    say_goodbye(GoodbyeReason::login_timeout, esesm::login_timeout_text);
    return std::exchange(answer_, {});
}

void RecoveryTalk::take_packet(const esesm::Packet& packet, PublishedFeed& feed) {
    switch (packet.type) {
        case esesm::PacketType::login_request: return log_in(packet.payload, feed);
        case esesm::PacketType::client_heartbeat:
        case esesm::PacketType::client_test: return;
        case esesm::PacketType::unsequenced_data: return refresh(packet.payload, feed);
        case esesm::PacketType::retransmission_request: return send_again(packet.payload, feed);
        case esesm::PacketType::logout_request: over_ = logged_out_ = true; return;
        default: return say_goodbye(GoodbyeReason::bad_packet, "unknown packet type");
    }
}

void RecoveryTalk::log_in(ByteView payload, const PublishedFeed& feed) {
    const auto request = esesm::read_login_request(payload);
    if (!request) return say_goodbye(GoodbyeReason::bad_packet, esesm::malformed_login_text);
    const LoginStatus status = check(*request);
    add(build(esesm::LoginResponse{{{status, feed.session(), feed.last()}}}));
    if (status == LoginStatus::successful) {
        logged_in_ = true;
    } else if (status != LoginStatus::invalid_start_sequence) {
        say_goodbye(GoodbyeReason::done, esesm::login_status_text(status));
    }
}

void RecoveryTalk::send_again(ByteView payload, const PublishedFeed& feed) {
    namespace at = layout::retransmission_request;
    if (!logged_in_) return say_goodbye(GoodbyeReason::bad_packet, esesm::not_logged_in_text);
    if (payload.size() < at::min_size) {
        return say_goodbye(GoodbyeReason::bad_packet, "malformed retransmission request");
    }
    feed.messages(get(payload, at::first), get(payload, at::last), [this](std::uint64_t sequence, ByteView message) {
        const std::size_t begin = answer_.size();
        answer_.resize(begin + esesm::sequenced_size(message.size()));
        esesm::build_sequenced(MutableBytes(answer_).subspan(begin), sequence, message);
    });
    served_ = Served::messages;
    say_goodbye(GoodbyeReason::done, "retransmission complete");
}

void RecoveryTalk::refresh(ByteView payload, PublishedFeed& feed) {
    namespace at = layout::refresh_request;
    if (!logged_in_ || payload.size() < at::min_size || get(payload, at::request) != 'R') {
        return say_goodbye(GoodbyeReason::bad_packet, "unknown request");
    }
    const auto type = static_cast<RefreshType>(get(payload, at::refresh_type));
    if (!is_known(type)) return say_goodbye(GoodbyeReason::bad_packet, "unknown refresh type");
    tell_state(type, feed);
    served_ = Served::state;
    say_goodbye(GoodbyeReason::done, "refresh complete");
}

// It carries the time at which it was built, not that of the recording.
void RecoveryTalk::tell_state(RefreshType type, PublishedFeed& feed) {
    const std::uint64_t now = now_ns();
    const std::uint64_t as_of = feed.last();
    add(refresh_packet(as_of, dom::build(dom::SystemTime{static_cast<std::uint32_t>(now / ns_per_second)})));
    feed.state().tell(type, static_cast<std::uint32_t>(now % ns_per_second),
                      [&](ByteView message) { add(refresh_packet(as_of, message)); });
    add(refresh_end_packet(type));
}

void RecoveryTalk::say_goodbye(GoodbyeReason reason, std::string_view text) {
    add(build(esesm::Goodbye{reason, text}));
    over_ = true;
}

}  // namespace kavo::companion

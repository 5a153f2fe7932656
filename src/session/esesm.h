// ESesM, the session protocol of both TCP services: packets, login records and the texts that go with them.
// Bytes only: no sockets and no timers.
//
// A packet is a 16-bit length (of what follows it), a type character and a payload. All numbers are little-endian.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/bytes.h"

namespace kavo::esesm {

enum class PacketType : char {
    login_request = 'l',
    login_response = 'r',
    logout_request = 'X',
    goodbye = 'G',
    server_heartbeat = '0',
    client_heartbeat = '1',
    client_test = 'T',  // taken and ignored like a heartbeat
    sequenced_data = 's',
    unsequenced_data = 'U',
    replay_complete = 'c',
    retransmission_request = 'a',
};

enum class LoginStatus : char {
    successful = ' ',
    incompatible_application = 'A',
    invalid_engine_count = 'C',
    incompatible_session = 'I',
    already_logged_in = 'L',
    invalid_start_sequence = 'N',
    invalid_session = 'S',
    engine_unavailable = 'U',  // no login ends this way yet; it has its text all the same
    invalid_user = 'X',
};

enum class GoodbyeReason : char { done = 'A', bad_packet = 'B', login_timeout = 'L' };

// Goodbye texts that both services use.
inline constexpr std::string_view malformed_login_text = "malformed login";
inline constexpr std::string_view not_logged_in_text = "not logged in";
inline constexpr std::string_view login_timeout_text = "timed out waiting for login";

inline constexpr std::string_view session_protocol = "1.0";
inline constexpr std::uint64_t login_limit_ms = 30'000;

// "unknown status" for a character that is no status.
std::string_view login_status_text(LoginStatus status);

namespace layout::packet {
inline constexpr Number<std::uint16_t> length{0};  // of the type and the payload
inline constexpr Letter type{2};
inline constexpr std::size_t header_size = end_of(type);
static_assert(adjoin(length, type));
}  // namespace layout::packet

namespace layout::sequenced_packet {  // the whole packet, header included
inline constexpr Number<std::uint64_t> sequence{layout::packet::header_size};
inline constexpr Number<std::uint8_t> matching_engine_id{11};
inline constexpr std::size_t header_size = end_of(matching_engine_id);
static_assert(adjoin(layout::packet::type, sequence, matching_engine_id));
}  // namespace layout::sequenced_packet

namespace layout::login_request {
inline constexpr Text session_protocol_version{0, 5};
inline constexpr Text username{5, 5};
inline constexpr Text computer_id{10, 8};
inline constexpr Text application_protocol_version{18, 8};
inline constexpr Number<std::uint8_t> matching_engine_count{26};
inline constexpr std::size_t min_size = end_of(matching_engine_count);
static_assert(adjoin(session_protocol_version, username, computer_id, application_protocol_version,
                     matching_engine_count));
namespace entry {  // from the start of each entry
inline constexpr Number<std::uint8_t> matching_engine_id{0};
inline constexpr Number<std::uint64_t> requested_sequence{1};
inline constexpr std::size_t size = end_of(requested_sequence);
static_assert(adjoin(matching_engine_id, requested_sequence));
}  // namespace entry
}  // namespace layout::login_request

namespace layout::login_response {
inline constexpr Number<std::uint8_t> entry_count{0};
inline constexpr std::size_t min_size = end_of(entry_count);
namespace entry {
inline constexpr Letter login_status{0};
inline constexpr Number<std::uint8_t> matching_engine_id{1};
inline constexpr Number<std::uint64_t> highest_sequence{2};
inline constexpr std::size_t size = end_of(highest_sequence);
static_assert(adjoin(login_status, matching_engine_id, highest_sequence));
}  // namespace entry
}  // namespace layout::login_response

namespace layout::goodbye {
inline constexpr Letter goodbye_reason{0};
inline constexpr std::size_t min_size = end_of(goodbye_reason);  // the text is the rest
}  // namespace layout::goodbye

struct LoginRequest {
    struct Entry {
        std::uint8_t matching_engine_id = 0;   // 0 means any engine
        std::uint64_t requested_sequence = 0;  // 0 means the current end of the stream
    };
    std::string session_protocol_version;
    std::string username;
    std::string computer_id;
    std::string application_protocol_version;
    std::vector<Entry> entries;
};

struct LoginResponse {
    struct Entry {
        LoginStatus login_status = LoginStatus::successful;
        std::uint8_t matching_engine_id = 0;
        std::uint64_t highest_sequence = 0;  // the last number assigned, 0 when there was none
    };
    std::vector<Entry> entries;
};

struct Goodbye {
    GoodbyeReason reason = GoodbyeReason::done;
    std::string_view text;  // lent
};

// A packet as it lies in the bytes that it was read from.
struct Packet {
    PacketType type;
    ByteView payload;
};

// The packet that these bytes begin with; nothing while it is not whole, and for a length of zero.
std::optional<Packet> read_packet(ByteView bytes);
// Nothing when the payload is cut short. Bytes behind the last entry are ignored.
std::optional<LoginRequest> read_login_request(ByteView payload);

// Builders give one whole packet, ready to be sent. A payload is at most 65,534 bytes; nobody hands them more.
Bytes build_packet(PacketType type, ByteView payload);
Bytes build(const Goodbye& goodbye);
Bytes build(const LoginResponse& response);

inline constexpr std::uint8_t only_matching_engine = 1;  // deliberately not the session that a login response carries

// The two whose payload never changes: nothing, and the matching engine.
inline constexpr std::array<std::uint8_t, 3> server_heartbeat{1, 0,
                                                              static_cast<std::uint8_t>(PacketType::server_heartbeat)};
inline constexpr std::array<std::uint8_t, 4> replay_complete{
    2, 0, static_cast<std::uint8_t>(PacketType::replay_complete), only_matching_engine};

// Sequenced data is framed where it is stored, so that it can be sent again from there.
//   packet  sequenced_size(message.size()) bytes
constexpr std::size_t sequenced_size(std::size_t message_size) {
    return layout::sequenced_packet::header_size + message_size;
}
void build_sequenced(MutableBytes packet, std::uint64_t sequence, ByteView message);

// What has been received and not yet been cut into packets.
class ReceiveBuffer {
public:
    // The next whole packet, in arrival order, valid until the buffer is touched again; nothing while it is incomplete.
    // A length of zero makes the rest unreadable: everything received so far is thrown away, and reading starts afresh
    // with whatever arrives next.
    std::optional<Packet> cut();

    // True when the next cut() gives a packet.
    bool holds_packet() const { return next().has_value(); }
    // That packet, left where it is; nothing when there is none.
    std::optional<Packet> next() const { return read_packet(rest()); }
    // Bytes that have not been cut.
    std::size_t size() const { return rest().size(); }

    // Where received bytes are appended. Forgets the packets that have been cut.
    Bytes& incoming();

private:
    ByteView rest() const { return ByteView(bytes_).subspan(cut_); }

    Bytes bytes_;
    std::size_t cut_ = 0;  // bytes before this one have been handed out
};

}  // namespace kavo::esesm

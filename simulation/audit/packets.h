// The packets of the session protocol and of the feed as the auditor knows them: offsets as plain numbers, nothing
// shared with the venue's own tables.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/bytes.h"

namespace kavo::simulation {

// `size` zero bytes, to be filled in, and the message behind them.
Bytes behind_header(std::size_t size, ByteView message);

Bytes session_packet(char type, ByteView payload);
Bytes sequenced_packet(std::uint64_t number, ByteView message);
Bytes goodbye_packet(char reason, std::string_view text);
Bytes login_response(char status, std::uint8_t session, std::uint64_t highest);

Bytes feed_packet(std::uint64_t sequence, std::uint8_t type, std::uint8_t session, ByteView message);

// Takes the first packet of the session protocol off what was received; false when it is not whole yet. A length of
// nothing makes everything behind it unreadable.
bool cut_session_packet(Bytes& received, char& type, Bytes& payload);

// Text that is filled up with blanks or NULs.
std::string padded_text(const Bytes& payload, std::size_t at, std::size_t width);

// The login that both services read.
struct Login {
    std::string session_protocol;
    std::string username;
    std::string computer_id;
    std::string application_protocol;
    std::size_t engines = 0;
    std::uint8_t engine_id = 0;   // of the first entry
    std::uint64_t requested = 0;  // of the first entry
};
bool read_login(const Bytes& payload, Login& login);
std::string_view login_status_text(char status);

}  // namespace kavo::simulation

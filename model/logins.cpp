#include "model/logins.h"

namespace kavo::model {

namespace {

// What is left when NULs and blanks are taken off the end.
std::string padded_text(ByteView payload, std::size_t at, std::size_t width) {
    std::string text(payload.begin() + static_cast<std::ptrdiff_t>(at),
                     payload.begin() + static_cast<std::ptrdiff_t>(at + width));
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
    return text;
}

}  // namespace

std::optional<Login> read_login(ByteView payload) {
    if (payload.size() < 27) return std::nullopt;
    const std::size_t engines = payload[26];
    if (payload.size() < 27 + 9 * engines) return std::nullopt;
    Login login{padded_text(payload, 0, 5),
                padded_text(payload, 5, 5),
                padded_text(payload, 10, 8),
                padded_text(payload, 18, 8),
                {}};
    for (std::size_t at = 27; login.entries.size() < engines; at += 9) {
        login.entries.push_back({payload[at], little_endian(payload.subspan(at + 1, 8))});
    }
    return login;
}

char order_entry_status(const Login& login, std::uint8_t session, const Stream& stream,
                        const std::function<bool()>& name_is_taken) {
    if (login.session_protocol != "1.0") return 'I';
    if (!login.application_protocol.starts_with("MEO")) return 'A';
    if (login.entries.size() != 1) return 'C';
    if (login.username.empty() || login.computer_id.empty()) return 'X';
    if (name_is_taken()) return 'L';
    if (login.entries[0].engine != 0 && login.entries[0].engine != session) return 'S';
    return login.requested() > stream.last_number() + 1 ? 'N' : ' ';
}

char recovery_status(const Login& login) {
    if (login.session_protocol != "1.0") return 'I';
    if (!login.application_protocol.starts_with("DoM")) return 'A';
    if (login.entries.size() != 1) return 'C';
    return login.requested() == 0 ? ' ' : 'N';
}

std::string_view login_status_text(char status) {
    switch (status) {
        case ' ': return "successful";
        case 'A': return "incompatible application protocol version";
        case 'C': return "invalid number of matching engines";
        case 'I': return "incompatible session protocol version";
        case 'L': return "client already logged in";
        case 'N': return "invalid start sequence number requested";
        case 'S': return "invalid trading session requested";
        case 'U': return "matching engine unavailable";
        case 'X': return "invalid username/computer ID";
        default: return "unknown status";
    }
}

bool may_try_again(char status) {
    return status == 'N' || status == 'S';
}

}  // namespace kavo::model

// Logins: the record that both services read, the checks of each in their order, and what a reject says.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/sessions.h"

namespace kavo::model {

inline constexpr std::uint64_t login_limit_ms = 30'000;  // of a connection that never logs in

struct Login {
    struct Entry {
        std::uint8_t engine = 0;
        std::uint64_t sequence = 0;
    };
    std::string session_protocol;
    std::string username;
    std::string computer_id;
    std::string application_protocol;
    std::vector<Entry> entries;

    std::uint64_t requested() const { return entries.empty() ? 0 : entries[0].sequence; }
};

// Nothing when the payload is cut short.
std::optional<Login> read_login(ByteView payload);

// Of a login, the first check that fails decides: its letter is the status, and a blank when none does.
//   stream         the user's; it may grow while the name is asked about
//   name_is_taken  on another connection; asked only when it decides
char order_entry_status(const Login& login, std::uint8_t session, const Stream& stream,
                        const std::function<bool()>& name_is_taken);
char recovery_status(const Login& login);
std::string_view login_status_text(char status);  // of those, too, with which no login ends
// Whether a rejected login may be followed by another on the same connection.
bool may_try_again(char status);

}  // namespace kavo::model

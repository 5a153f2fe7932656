// Login records: read as they are on paper, and answered as they are on paper.
#include <algorithm>
#include <string>

#include "harness/harness.h"
#include "model/logins.h"
#include "session/esesm.h"

namespace kavo::fuzz {
namespace {

using esesm::LoginRequest;

bool same(const LoginRequest& read, const model::Login& literal) {
    const auto same_entry = [](const LoginRequest::Entry& a, const model::Login::Entry& b) {
        return a.matching_engine_id == b.engine && a.requested_sequence == b.sequence;
    };
    return read.session_protocol_version == literal.session_protocol && read.username == literal.username &&
           read.computer_id == literal.computer_id &&
           read.application_protocol_version == literal.application_protocol &&
           std::ranges::equal(read.entries, literal.entries, same_entry);
}

void check_answers(const LoginRequest& request) {
    for (const auto& [engine, sequence] : request.entries) {
        const char status = static_cast<char>(sequence);
        const Bytes response =
            build(esesm::LoginResponse{{{static_cast<esesm::LoginStatus>(status), engine, sequence}}});
        require(response == model::login_response(status, engine, sequence), "a response holds its entry");
        const std::string_view text = login_status_text(static_cast<esesm::LoginStatus>(status));
        require(text == model::login_status_text(status), "every status has its text");
        require(build(esesm::Goodbye{esesm::GoodbyeReason::done, text}) == model::goodbye_packet('A', text),
                "a goodbye is its reason and its text");
    }
}

void read_login(ByteView payload) {
    const auto request = esesm::read_login_request(payload);
    const std::optional<model::Login> literal = model::read_login(payload);
    require(request.has_value() == literal.has_value(), "a login is read when it is as long as it says");
    if (!request) return;
    require(same(*request, *literal), "a login is read as it stands on paper");
    check_answers(*request);
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::read_login);
}

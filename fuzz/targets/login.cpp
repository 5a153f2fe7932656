// Login records: read as they are on paper, and answered in packets that a client can read.
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

// One login for each entry, each answered in another way.
std::vector<esesm::LoginResponseEntry> answers_to(const LoginRequest& request) {
    std::vector<esesm::LoginResponseEntry> answers;
    for (const LoginRequest::Entry& entry : request.entries) {
        const auto status = static_cast<esesm::LoginStatus>(entry.requested_sequence);
        answers.push_back({status, entry.matching_engine_id, entry.requested_sequence});
    }
    return answers;
}

// Only the packet itself, whole: nothing may be missing at its end or follow it.
ByteView only_packet(esesm::ReceiveBuffer& buffer, const Bytes& packet, esesm::PacketType type) {
    buffer.incoming() = packet;
    const auto cut = buffer.cut();
    require(cut && cut->type == type, "an answer is a packet of its type");
    require(!buffer.cut() && cut->payload.size() + 3 == packet.size(), "an answer is one packet and nothing else");
    return cut->payload;
}

void check_response(const std::vector<esesm::LoginResponseEntry>& answers) {
    esesm::ReceiveBuffer buffer;
    const Bytes packet = esesm::build_login_response(answers);
    const ByteView payload = only_packet(buffer, packet, esesm::PacketType::login_response);
    require(payload.size() == 1 + 10 * answers.size() && payload[0] == answers.size(), "a response holds its entries");
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const ByteView entry = payload.subspan(1 + 10 * i, 10);
        require(entry[0] == static_cast<std::uint8_t>(answers[i].login_status), "an entry begins with its status");
        require(entry[1] == answers[i].matching_engine_id, "an entry names its engine");
        require(model::little_endian(entry.subspan(2)) == answers[i].highest_sequence,
                "an entry ends with its sequence");
    }
}

void check_goodbye(const LoginRequest& request) {
    const auto status = static_cast<esesm::LoginStatus>(request.username.empty() ? 'X' : request.username.front());
    const std::string text(login_status_text(status));
    require(!text.empty(), "every status has a text");
    esesm::ReceiveBuffer buffer;
    const Bytes packet = esesm::build_goodbye(esesm::GoodbyeReason::done, text);
    const ByteView payload = only_packet(buffer, packet, esesm::PacketType::goodbye);
    require(as_text(payload) == "A" + text, "a goodbye is its reason and its text");
}

void read_login(ByteView payload) {
    LoginRequest request;
    const bool read = parse_login_request(payload, request);
    const std::optional<model::Login> literal = model::read_login(payload);
    require(read == literal.has_value(), "a login is read when it is as long as it says");
    if (!read) return;
    require(same(request, *literal), "a login is read as it stands on paper");

    LoginRequest used{"old", "old", "old", "old", {{1, 1}, {2, 2}}};
    require(parse_login_request(payload, used) && same(used, *literal), "a record can be used again");
    check_response(answers_to(request));
    check_goodbye(request);
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::read_login);
}

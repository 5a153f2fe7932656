#include "story.h"

#include <algorithm>
#include <map>

#include "client/feed_messages.h"
#include "client/transcript.h"
#include "common/clock.h"
#include "model/fields.h"
#include "model/packets.h"
#include "model/wire.h"

namespace kavo::simulation {

namespace {

std::string amount(std::uint32_t quantity, std::uint64_t price) {
    return std::to_string(quantity) + "@" + client::price_text(price);
}

std::string request_text(const Bytes& message) {
    if (const auto order = model::read_new_order(message)) {
        return "N1 " + order->client_order_id + " of " + order->mpid + " product " + std::to_string(order->product_id) +
               ((order->order_flags & 1) != 0 ? " sell " : " buy ") + amount(order->size, order->price) + " tif " +
               order->tif + " type " + order->order_type + printed(" flags %#x", order->order_flags);
    }
    if (const auto replacement = model::read_replace(message)) {
        return "M1 " + replacement->client_order_id + " for " + replacement->orig_client_order_id + " of " +
               replacement->mpid + " " + amount(replacement->size, replacement->price) + " tif " + replacement->tif;
    }
    if (const auto cancellation = model::read_cancel(message)) {
        return "CO " + cancellation->client_order_id + " of " + cancellation->orig_client_order_id + " of " +
               cancellation->mpid + " product " + std::to_string(cancellation->product_id);
    }
    return "unknown request of " + std::to_string(message.size()) + " bytes";
}

std::string from_client(char type, const Bytes& payload) {
    switch (type) {
        case 'l':
            if (payload.size() < 36) return "malformed login";
            return "login " + std::string(payload.begin() + 5, payload.begin() + 10) + " from " +
                   std::to_string(model::get(payload, 28, 8));
        case '1':
        case 'T': return "heartbeat";
        case 'X': return "logout";
        case 'a':
            if (payload.size() < 16) return "malformed request for messages";
            return "asks for " + std::to_string(model::get(payload, 0, 8)) + ".." +
                   std::to_string(model::get(payload, 8, 8));
        case 'U':
            if (payload.size() < 4) return "short request '" + std::string(payload.begin(), payload.end()) + "'";
            return request_text(payload);
        default: return std::string("packet of type ") + type;
    }
}

std::string taken_of(const Entry& entry) {
    if (entry.taken == entry.bytes.size()) return "";
    return entry.taken == 0 ? ", which it does not take" : ", of which it takes " + std::to_string(entry.taken);
}

// A packet, or what was left of one.
std::string words_of(const Entry& entry) {
    const Bytes& bytes = entry.bytes;
    const bool whole = bytes.size() >= 3 && bytes.size() == model::get(bytes, 0, 2) + 2;
    return (whole ? client::packet_text(bytes) : "the rest, " + std::to_string(bytes.size()) + " bytes") +
           taken_of(entry);
}

class Teller {
public:
    explicit Teller(std::FILE* out) : out_(out) {}

    void tell(const Entry& entry);
    void say(const std::string& who, const std::string& what);

private:
    void tell_bytes(const std::string& who, int fd, const Bytes& bytes);
    void tell_datagram(ByteView datagram);

    std::FILE* out_;
    std::uint64_t start_ms_ = 0;
    std::uint64_t now_ms_ = 0;
    std::uint64_t pass_ = 0;
    std::map<int, model::Cutter> received_;  // and not yet a whole packet
};

void Teller::say(const std::string& who, const std::string& what) {
    const std::uint64_t ms = now_ms_ - start_ms_;
    std::fprintf(out_, "%4ju.%03ju %-11s | %s\n", static_cast<std::uintmax_t>(ms / 1000),
                 static_cast<std::uintmax_t>(ms % 1000), who.c_str(), what.c_str());
}

void Teller::tell_bytes(const std::string& who, int fd, const Bytes& bytes) {
    model::Cutter& received = received_[fd];
    received.arrive(bytes);
    while (const auto packet = received.cut()) say(who, "> " + from_client(packet->type, packet->payload));
    if (received.lost_track()) say(who, "> a packet of length 0, so all of this is thrown away");
    if (received.size() != 0) say(who, "> a part of a packet, " + std::to_string(received.size()) + " bytes so far");
}

void Teller::tell_datagram(ByteView datagram) {
    while (const auto packet = client::read_feed_packet(datagram)) {
        const std::string number = std::to_string(packet->header.sequence) + ": ";
        const bool bare = packet->message.empty();
        say("feed", number + (bare ? (packet->header.sequence == 0 ? "start" : "heartbeat")
                                   : client::dom_text(packet->message)));
    }
}

void Teller::tell(const Entry& entry) {
    const std::string number = number_of(entry.fd);
    switch (entry.what) {
        case What::clock:
            now_ms_ = entry.steady_ms;
            if (start_ms_ == 0) start_ms_ = now_ms_;
            return;
        case What::step:
            if (entry.step == Step::read_time) say("pass", std::to_string(++pass_));
            return;
        case What::command: return say("person", "> " + entry.text);
        case What::command_reply: return say("person", "< " + entry.text.substr(0, entry.text.find('\n')));
        case What::client_connected: received_[entry.fd] = {}; return say("client " + number, "connects");
        case What::client_bytes: return tell_bytes("client " + number, entry.fd, entry.bytes);
        case What::client_gone: return say("client " + number, "is gone");
        case What::packet_sent: return say("client " + number, "< " + words_of(entry));
        case What::client_closed: return say("client " + number, "is closed");
        case What::receiver_connected: received_[entry.fd] = {}; return say("receiver " + number, "connects");
        case What::receiver_bytes: return tell_bytes("receiver " + number, entry.fd, entry.bytes);
        case What::receiver_gone: return say("receiver " + number, "is gone");
        case What::reply_sent:
            return say("receiver " + number, "< " + std::to_string(entry.bytes.size()) + " bytes" + taken_of(entry));
        case What::receiver_closed: return say("receiver " + number, "is closed");
        case What::datagram: return tell_datagram(entry.bytes);
        case What::order_truth:
            return say("truth", entry.text.substr(std::min(entry.text.find("\"ev\""), entry.text.size())));
        case What::commentary: return say("venue", entry.text);
        default: return;  // steps, pushes, book lines and snapshots would only hide the rest
    }
}

}  // namespace

void tell_story(const Tape& tape, const std::string& finding, std::size_t position, std::FILE* out) {
    Teller teller(out);
    for (std::size_t at = 0; at < tape.size(); ++at) {
        teller.tell(tape[at]);
        if (at == position && !finding.empty()) teller.say("AUDITOR", finding);
    }
}

}  // namespace kavo::simulation

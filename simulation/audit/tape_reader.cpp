#include "audit/tape_reader.h"

#include <algorithm>

#include "audit/finding.h"
#include "client/transcript.h"
#include "model/fields.h"

namespace kavo::simulation {

namespace {

bool is_whole_packet(const Bytes& bytes) {
    return bytes.size() >= 3 && bytes.size() == std::size_t{bytes[0]} + 256 * std::size_t{bytes[1]} + 2;
}

std::string first_number(const Bytes& datagram) {
    return datagram.size() < 8 ? "none" : std::to_string(model::get(datagram, 0, 8));
}

}  // namespace

void TapeReader::follow_the_clock() {
    for (; at_ < tape_.size() && tape_[at_].what == What::clock; ++at_) {
        now_ms_ = tape_[at_].steady_ms;
        now_ns_ = tape_[at_].wall_ns;
    }
}

bool TapeReader::at_datagram() const {
    return !at_end() && is_departure(tape_[at_]);
}

const Entry* TapeReader::next_beyond_datagrams() const {
    const auto passed_over = [](const Entry& entry) { return entry.what == What::clock || is_departure(entry); };
    const auto next = std::find_if_not(tape_.begin() + static_cast<std::ptrdiff_t>(at_), tape_.end(), passed_over);
    return next == tape_.end() ? nullptr : &*next;
}

const Entry& TapeReader::next() {
    if (at_end()) throw Finding("the tape ends too early");
    position_ = at_;
    const Entry& entry = tape_[at_++];
    follow_the_clock();
    return entry;
}

bool is_departure(const Entry& entry) {
    if (entry.what == What::datagram) return true;
    return entry.what == What::commentary && entry.text.starts_with("kavo_me fault: ");
}

std::string in_words(const Entry& entry) {
    const std::string peer = "client " + number_of(entry.fd);
    const std::string receiver = "receiver " + number_of(entry.fd);
    const std::string size = std::to_string(entry.bytes.size()) + " bytes";
    switch (entry.what) {
        case What::packet_sent:
            if (!is_whole_packet(entry.bytes)) return "a part of a packet, " + size + ", to " + peer;
            return "'" + client::packet_text(entry.bytes) + "' to " + peer;
        case What::packets_pushed: return "the push of what waits for " + peer;
        case What::client_bytes: return "a read of " + size + " from " + peer;
        case What::client_gone: return "a read that finds the end of " + peer;
        case What::client_finished: return "the end of what is sent to " + peer;
        case What::receiver_bytes: return "a read of " + size + " from " + receiver;
        case What::receiver_gone: return "a read that finds the end of " + receiver;
        case What::receiver_finished: return "the end of what is sent to " + receiver;
        case What::client_closed: return "the close of " + peer;
        case What::reply_sent: return "a reply of " + size + " to " + receiver;
        case What::receiver_closed: return "the close of " + receiver;
        case What::datagram: return "a datagram of " + size + " that begins with message " + first_number(entry.bytes);
        case What::order_truth: return "the order truth " + entry.text;
        case What::book_truth: return "the book truth " + entry.text;
        case What::commentary: return "the commentary '" + entry.text + "'";
        case What::command: return "the command '" + entry.text + "'";
        case What::client_connected: return "the call of " + peer;
        case What::receiver_connected: return "the call of " + receiver;
        case What::no_command: return "that no command waits";
        case What::nobody_calls: return "that nobody calls";
        case What::command_reply: return "the reply '" + entry.text + "'";
        case What::snapshot: return "the snapshot " + entry.text;
        case What::step: return "the step '" + std::string(name_of(entry.step)) + "'";
        default: return "an entry of kind " + std::to_string(static_cast<int>(entry.what));
    }
}

}  // namespace kavo::simulation

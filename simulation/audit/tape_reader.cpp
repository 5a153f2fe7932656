#include "audit/tape_reader.h"

#include <algorithm>

#include "audit/finding.h"
#include "support/transcript.h"

namespace kavo::simulation {

void TapeReader::follow_the_clock() {
    for (; at_ < tape_.size() && tape_[at_].what == What::clock; ++at_) {
        now_ms_ = tape_[at_].steady_ms;
        now_ns_ = tape_[at_].wall_ns;
    }
}

bool TapeReader::at_end() {
    follow_the_clock();
    return at_ == tape_.size();
}

bool TapeReader::next_is(What what) {
    return !at_end() && tape_[at_].what == what;
}

bool TapeReader::next_is(What what, std::string_view start) {
    return next_is(what) && tape_[at_].text.starts_with(start);
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
    if (entry.what == What::step) step_ = entry.step;
    return entry;
}

bool is_departure(const Entry& entry) {
    if (entry.what == What::datagram) return true;
    return entry.what == What::commentary && entry.text.starts_with("kavo_me fault: ");
}

std::string in_words(const Entry& entry) {
    const std::string fd = std::to_string(entry.fd);
    switch (entry.what) {
        case What::packet_sent: return "packet to " + fd + ": " + test::packet_text(entry.bytes);
        case What::packets_pushed: return "push to " + fd;
        case What::client_closed: return "close of " + fd;
        case What::datagram: return "datagram of " + std::to_string(entry.bytes.size()) + " bytes";
        case What::order_truth: return "order truth " + entry.text;
        case What::book_truth: return "book truth " + entry.text;
        case What::commentary: return "commentary '" + entry.text + "'";
        case What::step: return "step " + std::string(name_of(entry.step));
        case What::reply_sent: return "reply to " + fd + " of " + std::to_string(entry.bytes.size()) + " bytes";
        case What::receiver_closed: return "close of receiver " + fd;
        case What::command_reply: return "reply '" + entry.text + "'";
        case What::snapshot: return "snapshot " + entry.text;
        default: return "entry of kind " + std::to_string(static_cast<int>(entry.what));
    }
}

}  // namespace kavo::simulation

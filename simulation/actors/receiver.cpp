#include "actors/receiver.h"

#include <algorithm>

#include "client/feed_messages.h"
#include "client/transcript.h"

namespace kavo::simulation {

namespace {

constexpr std::uint8_t first_order_message = 0x14;  // Add Order; the other three follow it
constexpr std::uint8_t last_order_message = 0x18;

}  // namespace

Receiver::Receiver(Stage& stage, std::uint64_t dice_seed, bool steady)
    : stage_(stage), dice_(dice_seed), steady_(steady), asleep_(!steady && !dice_.one_in(3)) {}

void Receiver::act() {
    if (asleep_) {
        if (!settled_ && !dice_.one_in(60)) return;
        asleep_ = false;
        wants_snapshot_ = dice_.one_in(2);
        datagrams_taken_ = stage_.datagrams().size();
        // One that comes late knows of everything that it has not heard.
        if (datagrams_taken_ != 0) last_known_ = std::max<std::uint64_t>(last_known_, 1);
    }
    take_datagrams();
    recover();
}

void Receiver::settle_down() {
    settled_ = true;
    if (peer_ != nullptr) hang_up();
}

void Receiver::take_datagrams() {
    for (; datagrams_taken_ < stage_.datagrams().size(); ++datagrams_taken_) {
        if (!steady_ && !settled_ && dice_.one_in(25)) continue;  // the network loses some as well
        take_datagram(stage_.datagrams()[datagrams_taken_]);
    }
}

void Receiver::take_datagram(ByteView datagram) {
    while (const auto packet = client::read_feed_packet(datagram)) {
        if (packet->header.type == mach::PacketType::heartbeat) {
            last_known_ = std::max(last_known_, packet->header.sequence);
        }
        if (packet->header.type == mach::PacketType::application_data) take(packet->header.sequence, packet->message);
    }
    if (!datagram.empty()) complain("a datagram ends with something that is no packet");
}

void Receiver::take(std::uint64_t sequence, ByteView message) {
    const Bytes copy(message.begin(), message.end());
    last_known_ = std::max(last_known_, sequence);
    if (sequence > next_) {
        const auto [early, fresh] = early_.emplace(sequence, copy);
        if (!fresh && early->second != copy) complain(printed("two messages have the number %ju", sequence));
        return;
    }
    if (sequence < next_) {
        if (sequence >= first_ && applied_[sequence - first_] != copy) {
            complain(printed("message %ju came again, and differs", sequence));
        }
        return;
    }
    apply(sequence, copy);
    early_.erase(early_.begin(), early_.lower_bound(next_));
    while (!early_.empty() && early_.begin()->first == next_) {
        const Bytes due = std::move(early_.begin()->second);
        early_.erase(early_.begin());
        apply(next_, due);
    }
}

void Receiver::apply(std::uint64_t sequence, const Bytes& message) {
    applied_.push_back(message);
    next_ = sequence + 1;
    const std::uint32_t changed = book_.apply(message);
    const bool about_order = message[0] >= first_order_message && message[0] <= last_order_message;
    if (about_order && changed == 0) {
        return complain(printed("message %ju is about an order that nobody added: ", sequence) +
                        client::dom_text(message));
    }
    if (changed == 0 || !(steady_ || dice_.one_in(8))) return;
    const std::string& written = stage_.change_line(sequence);
    const std::string held = book_.truth_line(sequence, changed);
    if (held != written) complain("the book as received is\n  " + held + "\nand the book-change line\n  " + written);
}

Receiver::Touch Receiver::touch(std::uint32_t secid) const {
    Touch touch;
    if (next_ < 3 + stage_.plan().symbols.size()) return touch;  // the definitions are not here yet
    const client::ReceivedBook::Book& book = book_.book(secid);
    if (!book.bids.empty()) touch.bid = book.bids.rbegin()->first;
    if (!book.asks.empty()) touch.ask = book.asks.begin()->first;
    return touch;
}

void Receiver::complain(const std::string& text) {
    if (complaint_.empty()) complaint_ = "a receiver finds: " + text;
}

}  // namespace kavo::simulation

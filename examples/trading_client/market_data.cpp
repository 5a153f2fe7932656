#include "market_data.h"

#include <algorithm>
#include <limits>

#include "client/feed_messages.h"

namespace trading {

using namespace kavo::client;

namespace {

constexpr std::uint64_t first_pause_ms = 50;  // before asking again; doubled each time that nothing came of it
constexpr std::uint64_t longest_pause_ms = 1'000;
constexpr std::uint64_t reply_silence_ms = 3'000;  // a reply that stops for so long is given up
constexpr std::uint64_t feed_silence_ms = 2'000;   // the feed says something every second
constexpr std::uint64_t told_every_ms = 50;        // each book
constexpr char everything = 'O';
constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

bool is_heartbeat(const FeedPacket& packet) {
    return packet.header.type == kavo::mach::PacketType::heartbeat;
}

// Messages that change nothing, with the numbers of those that are missing.
std::vector<NumberedMessage> fillers(const SequenceRange& missing) {
    std::vector<NumberedMessage> messages;
    for (std::uint64_t number = missing.first; number <= missing.last; ++number) messages.push_back({number, {}});
    return messages;
}

// Login and request may go together: the venue takes one after the other.
kavo::Bytes opening(const std::string& user, const kavo::Bytes& request) {
    kavo::Bytes bytes =
        kavo::esesm::build_packet(kavo::esesm::PacketType::login_request, receiver_login(user).payload());
    bytes.insert(bytes.end(), request.begin(), request.end());
    return bytes;
}

}  // namespace

MarketData::MarketData(const Settings& settings, Beliefs& beliefs)
    : settings_(settings),
      beliefs_(beliefs),
      feed_(join_feed(settings.feed, settings.interface_address)),
      pause_ms_(first_pause_ms),
      heard_at_ms_(now_ms()) {
    listen_to(receiver_);
}

void MarketData::listen_to(FeedReceiver& receiver) {
    receiver.on_applied = [this](std::uint64_t number, std::uint32_t) {
        if (misapplied_.erase(number) == 0) books_.apply(receiver_.message(number));
    };
}

void MarketData::exchange(std::uint64_t now_ms) {
    while (const auto datagram = feed_.datagram()) take(*datagram, now_ms);
    if (asking_) converse(now_ms);
    if (should_ask(now_ms)) ask(now_ms);
}

void MarketData::take(kavo::ByteView datagram, std::uint64_t now_ms) {
    heard_at_ms_ = now_ms;
    kavo::ByteView rest = datagram;
    const auto first = read_feed_packet(rest);
    if (!first) return;
    const unsigned before = std::exchange(feed_session_, first->header.session);
    const bool new_session = before != 0 && before != feed_session_;
    const bool begins = first->header.type == kavo::mach::PacketType::start;
    if (new_session || begins || (synchronised_ && receiver_.contradicts(datagram))) start_over();
    if (settings_.fault == Fault::never_recovers_the_tail && is_heartbeat(*first)) return;
    misapply(datagram);
    receiver_.take(datagram);
    if (settings_.fault == Fault::skips_gaps && synchronised_ && receiver_.has_gap()) {
        receiver_.take_recovered(fillers(receiver_.missing()));
    }
    if (settings_.fault == Fault::asks_for_what_was_only_late && receiver_.has_gap() && !asking_) ask(now_ms);
}

// What was kept is worthless, and a request on its way may still be answered out of it.
void MarketData::start_over() {
    receiver_ = FeedReceiver();
    listen_to(receiver_);
    books_ = {};
    asking_.reset();
    synchronised_ = false;
}

bool MarketData::should_ask(std::uint64_t now_ms) const {
    if (asking_ || now_ms < ask_at_ms_) return false;
    if (failed_ && settings_.fault == Fault::gives_up_when_recovery_is_cut) return false;
    return !synchronised_ || receiver_.recovery_due() || (failed_ && receiver_.has_gap());
}

// Exactly what is missing is asked for: the first stretch of it, since the next may be on its way.
void MarketData::ask(std::uint64_t now_ms) {
    const bool of_state = !synchronised_ || settings_.refresh_only || settings_.fault == Fault::merges_the_snapshot;
    SequenceRange range;
    if (!of_state) {
        range = receiver_.missing();
        receiver_.begin_recovery();
        if (settings_.fault == Fault::asks_for_everything_again) range = {1, largest};
    }
    Recovery recovery = of_state ? Recovery::of_state(everything) : Recovery::of_messages(range.first, range.last);
    const kavo::Bytes request =
        of_state ? kavo::esesm::build_packet(kavo::esesm::PacketType::unsequenced_data, refresh_payload(everything))
                 : kavo::esesm::build_packet(kavo::esesm::PacketType::retransmission_request,
                                             retransmission_payload(range.first, range.last));
    asking_.emplace(Asking{std::move(recovery), of_state, opening(settings_.user, request),
                           begin_connection(settings_.recovery), 0, now_ms});
}

void MarketData::converse(std::uint64_t now_ms) {
    Asking& asking = *asking_;
    if (const auto rest = kavo::ByteView(asking.opening).subspan(asking.sent); !rest.empty()) {
        asking.sent += asking.socket.write(rest).value_or(0);
    }
    kavo::Bytes arrived;
    const bool open = asking.socket.read(arrived);
    if (!arrived.empty()) asking.heard_at_ms = now_ms;
    asking.recovery.receive(arrived);
    if (!open || now_ms - asking.heard_at_ms >= reply_silence_ms) asking.recovery.disconnected();
    if (asking.recovery.over()) finish(asking.recovery.problem().empty(), now_ms);
}

// Messages of a reply that was cut short are as good as any; half a snapshot is none.
void MarketData::finish(bool served, std::uint64_t now_ms) {
    const Asking asked = std::move(*asking_);
    asking_.reset();
    const std::uint64_t before = receiver_.next_sequence();
    if (!asked.of_state) take_messages(asked.recovery.messages, served);
    if (asked.of_state && served) take_state(asked.recovery.snapshot);
    const bool brought = receiver_.next_sequence() != before || (asked.of_state && served);
    failed_ = !served;
    pause_ms_ = brought ? first_pause_ms : std::min(pause_ms_ * 2, longest_pause_ms);
    ask_at_ms_ = now_ms + (served && brought ? 0 : pause_ms_);
}

void MarketData::take_messages(const std::vector<NumberedMessage>& messages, bool served) {
    const Recovered outcome = receiver_.take_recovered(messages);
    // The service does not have it any more, or does not know this feed: only a refresh helps.
    if (served && outcome != Recovered::whole) synchronised_ = false;
}

void MarketData::take_state(const Snapshot& snapshot) {
    synchronised_ = true;
    if (settings_.fault != Fault::merges_the_snapshot) books_ = {};
    for (const kavo::Bytes& message : snapshot.messages) books_.apply(message);
    receiver_.start_from(snapshot);
}

void MarketData::tell(std::uint64_t now_ms, bool all) {
    const std::uint64_t number = receiver_.next_sequence() - 1;
    const bool is_stale = stale(now_ms);
    for (const auto& [product, book] : books_.books()) {
        if (!settings_.trades(book.symbol)) continue;
        Told& told = told_[product];
        const bool news = told.number != number || told.stale != is_stale;
        if (!all && (!news || now_ms - told.at_ms < told_every_ms)) continue;
        beliefs_.tell_book(book, number, is_stale);
        told = {now_ms, number, is_stale};
    }
}

bool MarketData::stale(std::uint64_t now_ms) const {
    return !complete() || now_ms - heard_at_ms_ > feed_silence_ms;
}

// What two of the faults do to the books, beside the receiver that knows better.
void MarketData::misapply(kavo::ByteView datagram) {
    if (!synchronised_) return;
    while (const auto packet = read_feed_packet(datagram)) {
        if (packet->header.type != kavo::mach::PacketType::application_data) continue;
        const std::uint64_t number = packet->header.sequence;
        const bool known = number < receiver_.next_sequence() || misapplied_.contains(number);
        if (known && settings_.fault == Fault::applies_duplicates) books_.apply(packet->message);
        if (!known && settings_.fault == Fault::applies_late_datagrams) {
            books_.apply(packet->message);
            misapplied_.insert(number);
        }
    }
}

}  // namespace trading

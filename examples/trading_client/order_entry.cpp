#include "order_entry.h"

#include <algorithm>

#include "client/packets.h"

namespace trading {

using kavo::client::Session;

namespace {

constexpr std::uint64_t first_pause_ms = 100;  // before connecting again; doubled each time
constexpr std::uint64_t longest_pause_ms = 1'000;
constexpr std::uint64_t lasting_ms = 1'000;     // a connection that stood so long was a good one
constexpr std::uint64_t suspicious_ms = 1'500;  // such a silence may have swallowed messages
constexpr std::uint64_t ask_again_ms = 1'000;   // while orders are open that only a login tells of
constexpr std::uint64_t lingering_ms = 1'000;   // of a fault, behind a goodbye

Session new_session(const Settings& settings) {
    Session::Timing timing;
    if (settings.fault == Fault::never_heartbeats) timing.heartbeat_after_ms = Session::never_ms;
    if (settings.fault == Fault::waits_for_ever) timing.silence_limit_ms = Session::never_ms;
    return Session(kavo::client::login(settings.user, 1), timing);
}

}  // namespace

OrderEntry::OrderEntry(const Settings& settings, OrderKeeper& keeper)
    : settings_(settings), keeper_(keeper), session_(new_session(settings)), pause_ms_(first_pause_ms) {}

void OrderEntry::connect_if_due(std::uint64_t now_ms) {
    if (socket_.open() || logged_out_ || now_ms < connect_at_ms_) return;
    socket_ = begin_connection(settings_.orders);
    ++connection_;
    connected_at_ms_ = heard_at_ms_ = asked_at_ms_ = sent_at_ms_ = now_ms;
    session_.connected(now_ms);
    if (settings_.fault == Fault::sends_before_login && connection_ == 1) send(kavo::client::cancel("early"));
    log_in();
}

void OrderEntry::log_in() {
    kavo::client::Login login = kavo::client::login(settings_.user, applied_ + 1);
    const bool again = applied_ > 0;
    if (again && settings_.fault == Fault::asks_from_the_wrong_number) login.requested_sequence = applied_;
    if (again && settings_.fault == Fault::logs_in_from_zero) login.requested_sequence = 0;
    session_.log_in(login);
    answer_due_ = true;
    caught_up_ = false;
}

void OrderEntry::ask_again() {
    if (ready()) log_in();
}

void OrderEntry::log_out(std::uint64_t now_ms) {
    session_.log_out();
    logged_out_ = true;
    caught_up_ = false;
    write(now_ms);
}

void OrderEntry::exchange(std::uint64_t now_ms) {
    if (!socket_.open()) return;
    kavo::Bytes arrived;
    const bool open = socket_.read(arrived);
    const bool after_silence = !arrived.empty() && now_ms - heard_at_ms_ > suspicious_ms;
    if (!arrived.empty()) heard_at_ms_ = now_ms;
    session_.receive(arrived, now_ms);
    while (const auto arrival = session_.next()) act_on(*arrival, now_ms);
    if (!socket_.open()) return;
    if (lingers_ && now_ms - heard_at_ms_ < lingering_ms) {
        session_.check_time(now_ms);
        return write(now_ms);
    }
    if (!open) return drop(now_ms);
    if (after_silence) ask_again();
    look_at_end(now_ms);
    look_at_clock(now_ms);
    write(now_ms);
}

void OrderEntry::act_on(const Session::Arrival& arrival, std::uint64_t now_ms) {
    using enum Session::Arrival::Kind;
    switch (arrival.kind) {
        case accepted: take_acceptance(arrival); break;
        case message: apply(arrival); break;
        case hole:
            if (settings_.fault == Fault::trusts_tcp_to_be_whole && arrival.sequence > applied_) apply(arrival);
            break;
        case goodbye: lingers_ = settings_.fault == Fault::sends_after_goodbye; break;
        default: break;
    }
    check_caught_up(now_ms);
}

void OrderEntry::take_acceptance(const Session::Arrival& arrival) {
    const auto response = kavo::client::read_login_response(arrival.packet);
    answer_due_ = false;
    replay_end_ = response->highest_sequence;
    if (settings_.fault == Fault::logs_in_from_zero) applied_ = session_.next_sequence() - 1;
    const unsigned before = std::exchange(venue_, response->matching_engine_id);
    if (before != 0 && before != venue_) start_over(heard_at_ms_);
}

void OrderEntry::apply(const Session::Arrival& arrival) {
    applied_ = arrival.sequence;
    keeper_.take(arrival.sequence, arrival.message, arrival.sequence <= replay_end_);
}

void OrderEntry::check_caught_up(std::uint64_t now_ms) {
    if (caught_up_ || answer_due_ || !session_.logged_in() || applied_ < replay_end_) return;
    caught_up_ = true;
    asked_at_ms_ = now_ms;
    keeper_.caught_up(connection_);
}

void OrderEntry::look_at_end(std::uint64_t now_ms) {
    switch (session_.end()) {
        case Session::End::none: return;
        case Session::End::hole:
            // On this connection, since a new one would lose the orders of this one.
            if (settings_.fault != Fault::trusts_tcp_to_be_whole) log_in();
            return;
        case Session::End::refused:
            answer_due_ = false;
            if (session_.refusal() == kavo::esesm::LoginStatus::invalid_start_sequence) return start_over(now_ms);
            if (session_.refusal() != kavo::esesm::LoginStatus::already_logged_in) {
                refused_ = kavo::esesm::login_status_text(session_.refusal());
            }
            return drop(now_ms);
        default: return drop(now_ms);
    }
}

void OrderEntry::look_at_clock(std::uint64_t now_ms) {
    if (!socket_.open()) return;
    // Only when the venue is heard: one that is silent is left.
    const bool heard_since = heard_at_ms_ >= std::max(asked_at_ms_, sent_at_ms_) + ask_again_ms;
    const bool in_the_dark = heard_since && keeper_.waits_for_news(connection_);
    if (in_the_dark) ask_again();
    if (!logged_out_) session_.check_time(now_ms);
}

// A venue that has begun anew knows neither the stream nor the orders.
void OrderEntry::start_over(std::uint64_t now_ms) {
    keeper_.forget();
    session_ = new_session(settings_);
    applied_ = replay_end_ = 0;
    drop(now_ms);
}

void OrderEntry::drop(std::uint64_t now_ms) {
    socket_.close();
    lingers_ = false;
    session_.disconnected();
    caught_up_ = answer_due_ = false;
    keeper_.disconnected();
    if (now_ms - connected_at_ms_ >= lasting_ms) pause_ms_ = first_pause_ms;
    if (settings_.fault == Fault::hammers_the_login) pause_ms_ = 0;
    connect_at_ms_ = now_ms + pause_ms_;
    pause_ms_ = std::min(pause_ms_ * 2, longest_pause_ms);
}

void OrderEntry::write(std::uint64_t now_ms) {
    if (!socket_.open() || session_.to_send().empty()) return;
    if (const auto taken = socket_.write(session_.to_send())) session_.sent(*taken, now_ms);
}

}  // namespace trading

#include "kavo/wire/flow.h"

#include <algorithm>

#include "session/esesm.h"

namespace kavo::companion {

namespace {

namespace at = esesm::layout::packet;
using std::chrono::nanoseconds;

// With a limit of bytes per second, so much goes on at a time, and a turn that is late by no more is made up for.
constexpr std::chrono::milliseconds slice{10};
constexpr std::uint64_t slices_a_second = 100;
constexpr std::size_t erased_at = 64 * 1024;

bool is_heartbeat(char type) {
    return type == static_cast<char>(esesm::PacketType::server_heartbeat) ||
           type == static_cast<char>(esesm::PacketType::client_heartbeat);
}

}  // namespace

void Flow::take(Time now, ByteView bytes) {
    if (held() && !noted_held_ && !bytes.empty()) {
        note("held", bytes.size());
        noted_held_ = true;
    }
    while (!bytes.empty() && end_ == End::none) {
        std::size_t count = 1;
        if (framing_.lost) {
            keep(now, bytes);
            return;
        }
        if (framing_.left == 0) {
            take_header_byte(now, bytes[0]);
        } else {
            count = std::min(framing_.left, bytes.size());
            framing_.left -= count;
            take_of_packet(now, bytes.first(count));
        }
        bytes = bytes.subspan(count);
    }
}

void Flow::take_header_byte(Time now, std::uint8_t byte) {
    Bytes& header = framing_.header;
    if (header.empty()) framing_.withheld = faults_ != nullptr && (faults_->swallow > 0 || faults_->half);
    header.push_back(byte);
    if (!framing_.withheld) keep(now, ByteView(&byte, 1));
    framing_.lost = header.size() == end_of(at::length) && get(header, at::length) == 0;
    if (framing_.lost && framing_.withheld) keep(now, header);
    if (header.size() == at::header_size) begin_packet(now);
}

void Flow::begin_packet(Time now) {
    const Bytes header = std::exchange(framing_.header, {});
    framing_.size = end_of(at::length) + get(header, at::length);
    framing_.left = framing_.size - header.size();
    framing_.fate = framing_.withheld ? fate_of(get(header, at::type)) : Fate::passed;
    framing_.keep = framing_.withheld ? framing_.size : framing_.left;
    if (framing_.fate == Fate::swallowed) framing_.keep = 0;
    if (framing_.fate == Fate::halved) framing_.keep = framing_.size / 2;
    take_of_packet(now, framing_.withheld ? ByteView(header) : ByteView());
}

Flow::Fate Flow::fate_of(char type) {
    if (is_heartbeat(type)) return Fate::passed;
    if (faults_->swallow > 0) {
        --faults_->swallow;
        return Fate::swallowed;
    }
    return std::exchange(faults_->half, false) ? Fate::halved : Fate::passed;
}

void Flow::take_of_packet(Time now, ByteView bytes) {
    const ByteView kept = bytes.first(std::min(bytes.size(), framing_.keep));
    framing_.keep -= kept.size();
    keep(now, kept);
    if (framing_.fate == Fate::swallowed && framing_.left == 0) note("swallowed", framing_.size);
    if (framing_.fate == Fate::halved && framing_.keep == 0) {
        note("half", framing_.size / 2);
        end(now, End::cut);
    }
}

void Flow::keep(Time now, ByteView bytes) {
    if (bytes.empty()) return;
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    if (arrivals_.empty() || arrivals_.back().at != now) arrivals_.push_back({now, 0});
    arrivals_.back().bytes += bytes.size();
}

// What has begun to be a packet when the end comes goes on before it, as it would have without the relay. Behind half a
// packet, whatever the speaker does is not heard any more.
void Flow::end(Time now, End how) {
    if (end_ == End::cut) return;
    if (framing_.withheld && !framing_.header.empty()) keep(now, std::exchange(framing_.header, {}));
    end_ = how;
    end_at_ = now;
}

ByteView Flow::ready(Time now) {
    if (size() == 0 || held()) return {};
    if (noted_held_) note("released", size());
    noted_held_ = false;
    return ByteView(bytes_).subspan(passed_, limit(now));
}

std::size_t Flow::limit(Time now) const {
    if (faults_ == nullptr) return size();
    if (faults_->bytes_per_second != 0 && now < not_before_) return 0;
    std::size_t most = 0;
    for (const Arrival& arrival : arrivals_) {
        if (arrival.at + faults_->latency > now) break;
        most += arrival.bytes;
    }
    if (faults_->bytes_per_second != 0) {
        most = std::min(
            most, static_cast<std::size_t>(std::max<std::uint64_t>(faults_->bytes_per_second / slices_a_second, 1)));
    }
    return faults_->piece == 0 ? most : std::min(most, faults_->piece);
}

void Flow::passed(Time now, std::size_t count) {
    passed_ += count;
    if (passed_ == bytes_.size() || passed_ >= erased_at) {
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(passed_));
        passed_ = 0;
    }
    for (std::size_t left = count; left > 0;) {
        Arrival& first = arrivals_.front();
        const std::size_t part = std::min(left, first.bytes);
        first.bytes -= part;
        left -= part;
        if (first.bytes == 0) arrivals_.pop_front();
    }
    if (faults_ == nullptr) return;
    if (faults_->bytes_per_second != 0) {
        if (not_before_ + slice < now) not_before_ = now;
        not_before_ += nanoseconds(count * 1'000'000'000 / faults_->bytes_per_second);
        burst_slowed_ += count;
    }
    if (faults_->latency.count() != 0) burst_delayed_ += count;
    if (faults_->piece != 0) burst_split_ += count;
    if (size() == 0) note_end_of_burst();
}

Flow::End Flow::end_ready(Time now) {
    if (size() != 0 || held()) return End::none;
    const bool delayed = end_ != End::cut && faults_ != nullptr && end_at_ + faults_->latency > now;
    return delayed ? End::none : end_;
}

std::optional<Flow::Time> Flow::next_look() const {
    if (faults_ == nullptr || held() || (size() == 0 && end_ == End::none)) return std::nullopt;
    if (size() == 0) return end_at_ + faults_->latency;
    const Time due = arrivals_.front().at + faults_->latency;
    return faults_->bytes_per_second != 0 ? std::max(due, not_before_) : due;
}

void Flow::forget_everything() {
    bytes_.clear();
    passed_ = 0;
    arrivals_.clear();
    end_ = End::none;
}

void Flow::note(std::string_view what, std::size_t bytes) const {
    if (did) did(what, bytes);
}

void Flow::note_end_of_burst() {
    if (burst_delayed_ != 0) note("delayed", std::exchange(burst_delayed_, 0));
    if (burst_slowed_ != 0) note("slowed", std::exchange(burst_slowed_, 0));
    if (burst_split_ != 0) note("split", std::exchange(burst_split_, 0));
}

}  // namespace kavo::companion

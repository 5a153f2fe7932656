#include "audit/audited_feed.h"

#include <algorithm>

#include "audit/finding.h"
#include "audit/packets.h"
#include "client/transcript.h"
#include "model/fields.h"
#include "model/wire.h"

namespace kavo::simulation {

namespace {

constexpr std::size_t header_size = 12;
constexpr std::size_t most_bytes = 1400;
constexpr std::uint64_t heartbeat_after_ms = 1000;
constexpr std::string_view fault_prefix = "kavo_me fault: ";

}  // namespace

AuditedFeed::AuditedFeed(TapeReader& tape, const std::vector<Bytes>& history, const Plan& plan)
    : tape_(tape),
      history_(history),
      session_(plan.engine.session),
      burst_start_(plan.faults.drop_burst_start),
      burst_count_(plan.faults.drop_burst_count) {
    drop.every = plan.faults.drop_every;
    duplicate.every = plan.faults.dup_every;
    reorder.every = plan.faults.reorder_every;
}

std::uint64_t AuditedFeed::stamped_ns() {
    take_overflows();
    return before_overflow_ns_.value_or(tape_.now_ns());
}

const Bytes& AuditedFeed::peek() const {
    std::uint64_t sequence = published_ + 1;
    if (sequence <= history_.size() && message(sequence)[0] == '1') ++sequence;
    if (sequence > history_.size()) throw Finding("a change of a book was never published");
    return message(sequence);
}

void AuditedFeed::publish(const Bytes& expected) {
    const std::uint64_t second = stamped_ns() / ns_per_second;
    const auto take = [this](const Bytes& due) {
        if (published_ == history_.size()) throw Finding("never published: " + client::dom_text(due));
        if (message(++published_) == due) return;
        throw Finding(printed("feed message %ju is '", static_cast<std::uintmax_t>(published_)) +
                      client::dom_text(message(published_)) + "', but should be '" + client::dom_text(due) + "'\n  " +
                      model::hex(message(published_)) + "\n  " + model::hex(due));
    };
    if (second != announced_second_) take(model::system_time(stamped_ns()));
    announced_second_ = second;
    take(expected);
    before_overflow_ns_.reset();
}

void AuditedFeed::take_overflows() {
    while (tape_.at_datagram()) {
        if (!before_overflow_ns_) before_overflow_ns_ = tape_.now_ns();
        const std::uint64_t count = most_that_fit();
        const std::uint64_t last = flushed_ + count;
        // Only the System Time in front of the message that did not fit can have been published without our knowing.
        if (last < published_ || last > published_ + 1) {
            throw Finding("a datagram that should go up to message " + std::to_string(last) + " leaves after message " +
                          std::to_string(published_));
        }
        take_flush(count);
    }
}

void AuditedFeed::expect_flush() {
    while (flushed_ < published_) take_flush(std::min(most_that_fit(), published_ - flushed_));
    before_overflow_ns_.reset();
}

// From the first message that no datagram carried yet.
std::uint64_t AuditedFeed::most_that_fit() const {
    std::uint64_t count = 0;
    std::size_t size = 0;
    for (std::uint64_t next = flushed_ + 1; next <= history_.size(); ++next, ++count) {
        size += header_size + message(next).size();
        if (size > most_bytes) break;
    }
    return count;
}

// What the faults make of the next datagram: it is lost, held back, or sent, once or twice, before one that was held.
void AuditedFeed::take_flush(std::uint64_t count) {
    const std::uint64_t first = flushed_ + 1;
    const std::string at = " seq " + std::to_string(first);
    const Bytes datagram = datagram_of(first, count);
    flushed_ += count;
    ++packets;  // which all three faults count
    const bool in_burst = packets >= burst_start_ && packets - burst_start_ < burst_count_;
    if (drop.happens_on(packets, in_burst)) {
        ++dropped;
        expect_fault("dropped" + at + " (packet " + std::to_string(packets) + ", " + std::to_string(count) +
                     " message(s))");
        last_flush_ms_ = tape_.now_ms();
        return;
    }
    const bool twice = duplicate.happens_on(packets);
    if (reorder.happens_on(packets)) {
        ++reordered;
        held_ = datagram;
        expect_fault("reordered" + at + " (held behind the next packet)");
        last_flush_ms_ = tape_.now_ms();
        return;
    }
    expect_datagram(datagram);
    if (twice) {
        ++duplicated;
        expect_datagram(datagram);
        expect_fault("duplicated" + at);
    }
    if (!held_.empty()) expect_datagram(held_);
    held_.clear();
    last_flush_ms_ = tape_.now_ms();
}

Bytes AuditedFeed::datagram_of(std::uint64_t first, std::uint64_t count) const {
    Bytes datagram;
    for (std::uint64_t sequence = first; sequence < first + count; ++sequence) {
        const Bytes one = feed_packet(sequence, 3, session_, message(sequence));
        datagram.insert(datagram.end(), one.begin(), one.end());
    }
    return datagram;
}

void AuditedFeed::expect_datagram(const Bytes& datagram) {
    const Entry& entry = tape_.next();
    if (entry.what == What::datagram && entry.bytes == datagram) return;
    throw Finding(
        "expected the datagram that begins with message " + std::to_string(model::get(datagram, 0, 8)) + " and has " +
        std::to_string(datagram.size()) + " bytes, but found " + in_words(entry) +
        (entry.what == What::datagram ? " that begins with " + std::to_string(model::get(entry.bytes, 0, 8)) : ""));
}

void AuditedFeed::expect_fault(const std::string& line) {
    const Entry& entry = tape_.next();
    if (entry.what == What::commentary && entry.text == std::string(fault_prefix) + line) return;
    throw Finding("expected the fault '" + line + "', but found " + in_words(entry));
}

void AuditedFeed::expect_start() {
    expect_datagram(feed_packet(0, 1, session_, {}));
    last_flush_ms_ = tape_.now_ms();
}

void AuditedFeed::run_heartbeat() {
    if (tape_.now_ms() < last_flush_ms_ + heartbeat_after_ms) return;
    expect_flush();
    expect_datagram(feed_packet(published_, 0, session_, {}));
    last_flush_ms_ = tape_.now_ms();
}

std::string AuditedFeed::fault_summary() const {
    return "kavo_me faults: sent " + std::to_string(packets - dropped) + " dropped " + std::to_string(dropped) +
           " duplicated " + std::to_string(duplicated) + " reordered " + std::to_string(reordered);
}

}  // namespace kavo::simulation

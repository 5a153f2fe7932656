#include "kavo/audit/bench_feed.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "client/feed_messages.h"
#include "kavo/audit/bench_recovery.h"

namespace kavo::companion {

namespace {

// 0 for a type that there is not.
std::size_t size_of_type(std::uint8_t type) {
    namespace at = dom::layout;
    switch (static_cast<dom::MessageType>(type)) {
        case dom::MessageType::system_time: return at::system_time::size;
        case dom::MessageType::system_state: return at::system_state::size;
        case dom::MessageType::series_definition: return at::series_definition::size;
        case dom::MessageType::series_trading_status: return at::series_trading_status::size;
        case dom::MessageType::series_open: return at::series_open::size;
        case dom::MessageType::add_order: return at::add_order::size;
        case dom::MessageType::modify_order: return at::modify_order::size;
        case dom::MessageType::delete_order: return at::delete_order::size;
        case dom::MessageType::order_executed: return at::order_executed::size;
    }
    return 0;
}

std::string number_text(std::uint64_t first, std::uint64_t last) {
    return first == last ? std::to_string(first) : std::to_string(first) + " to " + std::to_string(last);
}

class FeedAudit {
public:
    FeedAudit(const Journal& journal, const BenchLog& log, BenchFindings& findings)
        : journal_(journal), log_(log), findings_(findings) {}

    RecordedFeed audit() {
        for (const Datagram& datagram : journal_.feed) read(datagram);
        sort();
        feed_.messages = without_repetitions(feed_.messages);
        look_for_unsaid_faults();
        find_gaps();
        return std::move(feed_);
    }

private:
    void read(const Datagram& datagram) {
        ByteView rest = datagram.bytes;
        bool first = true;
        before_ = 0;
        while (const auto packet = client::read_feed_packet(rest)) {
            if (packet->header.session != journal_.facts.session) {
                return damaged(datagram, "a packet of session " + std::to_string(packet->header.session));
            }
            read(*packet, datagram, first);
            first = false;
        }
        if (first || !rest.empty()) damaged(datagram, "a datagram that ends within a packet");
    }

    void read(const client::FeedPacket& packet, const Datagram& datagram, bool first) {
        const std::uint64_t sequence = packet.header.sequence;
        if (packet.header.type == mach::PacketType::heartbeat) return read_heartbeat(sequence, datagram);
        if (packet.header.type == mach::PacketType::start) {
            if (starts_++ != 0) damaged(datagram, "a second start of the feed");
            return;
        }
        if (sequence == 0 || sequence > largest_number) {
            return damaged(datagram, "a message under number " + std::to_string(sequence));
        }
        if (packet.message.empty() || packet.message.size() != size_of_type(packet.message[0])) {
            return damaged(datagram, "a message of " + std::to_string(packet.message.size()) + " bytes that is none");
        }
        if (first) {
            ++feed_.datagrams;
            if (sequence <= latest_ && was_received(sequence)) ++again_[sequence];
        } else if (sequence != before_ + 1) {
            // Nothing that happens on the way can take a message out of the middle of a datagram.
            findings_.contradiction(bench_rule::feed_number,
                                    {.expected = "message " + std::to_string(before_ + 1) + " behind the one before it",
                                     .got = "message " + std::to_string(sequence) + " in the same datagram",
                                     .where = {.moment = datagram.at, .feed_number = sequence}});
        }
        before_ = sequence;
        if (sequence > latest_ && sequence <= heartbeat_) {
            findings_.contradiction(bench_rule::feed_heartbeat,
                                    {.expected = "a number above " + std::to_string(heartbeat_) +
                                                 ", which a heartbeat has called the last one used",
                                     .got = "message " + std::to_string(sequence),
                                     .where = {.moment = datagram.at, .feed_number = sequence}});
        }
        if (sequence > latest_ + 1) holes_[latest_ + 1] = sequence - 1;
        in_order_ = in_order_ && sequence > latest_;
        latest_ = std::max(latest_, sequence);
        feed_.last_used = std::max(feed_.last_used, sequence);
        feed_.messages.push_back({sequence, packet.message, datagram.at, false});
    }

    // Of a number that is not the largest. What comes late was not received before; a machine may bring datagrams late
    // by itself, but never twice.
    bool was_received(std::uint64_t sequence) {
        const auto behind = holes_.upper_bound(sequence);
        if (behind == holes_.begin() || std::prev(behind)->second < sequence) return true;
        return !late_.insert(sequence).second;
    }

    void read_heartbeat(std::uint64_t sequence, const Datagram& datagram) {
        if (sequence > largest_number) return damaged(datagram, "a heartbeat with " + std::to_string(sequence));
        if (sequence < latest_) {
            findings_.contradiction(
                bench_rule::feed_heartbeat,
                {.expected = "a heartbeat with the last number used, " + std::to_string(latest_) + " or larger",
                 .got = "a heartbeat with " + std::to_string(sequence),
                 .where = {.moment = datagram.at, .feed_number = sequence}});
        }
        heartbeat_ = std::max(heartbeat_, sequence);
        feed_.last_used = std::max(feed_.last_used, sequence);
    }

    void damaged(const Datagram& datagram, const std::string& what) {
        findings_.contradiction_unless(
            log_.wire_incomplete, bench_rule::feed_message,
            {.expected = "whole packets of session " + std::to_string(journal_.facts.session) + " and known messages",
             .got = what,
             .where = {.moment = datagram.at}});
    }

    // Messages that were sent again stand behind those of datagrams with the same number.
    void sort() {
        const std::size_t published = feed_.messages.size();
        add_messages_sent_again(journal_, feed_.messages);
        if (in_order_ && feed_.messages.size() == published) return;
        std::ranges::stable_sort(feed_.messages, {}, &FeedMessage::sequence);
    }

    std::vector<FeedMessage> without_repetitions(const std::vector<FeedMessage>& all) {
        std::vector<FeedMessage> once;
        once.reserve(all.size());
        for (const FeedMessage& message : all) {
            if (once.empty() || once.back().sequence != message.sequence) {
                once.push_back(message);
            } else if (!std::ranges::equal(once.back().bytes, message.bytes)) {
                findings_.contradiction(message.sent_again ? bench_rule::recovery : bench_rule::feed_number,
                                        {.expected = "the message that had the number before",
                                         .got = "another message under number " + std::to_string(message.sequence),
                                         .where = {.moment = message.at, .feed_number = message.sequence}});
            }
        }
        return once;
    }

    // What is said to be dropped does not come, and what is not said to come twice comes once.
    void look_for_unsaid_faults() {
        if (!log_.venue_log_incomplete.empty()) return;
        for (const auto& [first, times] : again_) {
            const auto planned = log_.doubled.find(first);
            if (planned != log_.doubled.end() && times <= planned->second) continue;
            unplanned(first, "came " + std::to_string(times + 1) + " times", "once, unless a fault is said");
        }
        for (const auto& [first, messages] : log_.dropped) {
            const auto found = std::ranges::lower_bound(feed_.messages, first, {}, &FeedMessage::sequence);
            if (found == feed_.messages.end() || found->sequence != first || found->sent_again) continue;
            unplanned(first, "was received", "nothing of a datagram that is said to be dropped");
        }
    }

    void unplanned(std::uint64_t first, const std::string& what, const std::string& expected) {
        findings_.contradiction(bench_rule::fault_line,
                                {.expected = expected,
                                 .got = "the datagram that begins with message " + std::to_string(first) + " " + what,
                                 .where = {.feed_number = first}});
    }

    void find_gaps() {
        std::uint64_t next = 1;
        const auto missing = [this, &next](std::uint64_t up_to) {
            while (next <= up_to) next = take_gap(next, up_to);
        };
        for (const FeedMessage& message : feed_.messages) {
            if (message.sent_again) continue;
            missing(message.sequence - 1);
            next = message.sequence + 1;
        }
        missing(feed_.last_used);
    }

    // One gap of one cause: a planned one ends where the venue said so, a datagram that was held where something else
    // begins that the venue has named.
    std::uint64_t take_gap(std::uint64_t first, std::uint64_t last) {
        std::uint64_t end = last;
        bool planned = true;
        if (const auto drop = log_.dropped.find(first); drop != log_.dropped.end() && drop->second != 0) {
            end = std::min(last, drop->second > last - first ? last : first + drop->second - 1);
        } else if (log_.held.contains(first)) {
            for (const auto* lines : {&log_.dropped, &log_.held}) {
                const auto later = lines->upper_bound(first);
                if (later != lines->end()) end = std::min(end, later->first - 1);
            }
        } else {
            planned = false;
            for (const auto* lines : {&log_.dropped, &log_.held}) {
                const auto later = lines->upper_bound(first);
                if (later != lines->end()) end = std::min(end, later->first - 1);
            }
        }
        feed_.gaps.push_back({first, end, planned, false});
        return end + 1;
    }

    const Journal& journal_;
    const BenchLog& log_;
    BenchFindings& findings_;
    RecordedFeed feed_;
    std::uint64_t before_ = 0;     // number of the message before, in the same datagram
    std::uint64_t latest_ = 0;     // largest number of a message so far
    std::uint64_t heartbeat_ = 0;  // and of a heartbeat
    std::uint64_t starts_ = 0;
    bool in_order_ = true;
    std::map<std::uint64_t, std::uint64_t> holes_;  // first and last of what had not come when something later did
    std::set<std::uint64_t> late_;                  // datagrams that came into a hole, by their first message
    std::map<std::uint64_t, std::uint64_t> again_;  // and datagrams that had come before
};

}  // namespace

RecordedFeed audit_feed(const Journal& journal, const BenchLog& log, Verdict& verdict, BenchFindings& findings) {
    RecordedFeed feed = FeedAudit(journal, log, findings).audit();
    audit_recovery_service(journal, feed, verdict, findings);
    verdict.counts.datagrams = journal.feed.size();
    verdict.counts.feed_messages = feed.messages.size();
    return feed;
}

namespace {

// True when as many datagrams were received as the venue has sent, so that none was lost on its way.
bool all_sent_is_received(const BenchLog& log, const RecordedFeed& feed) {
    if (!log.report || !log.report->contains("sent") || !log.report->contains("duplicated")) return false;
    return feed.datagrams >= log.report->at("sent") + log.report->at("duplicated");
}

}  // namespace

void judge_gaps(const BenchLog& log, const RecordedFeed& feed, BenchFindings& findings) {
    const auto recovered = [&feed](const FeedGap& gap) {
        const auto from = std::ranges::lower_bound(feed.messages, gap.first, {}, &FeedMessage::sequence);
        const auto to = std::ranges::upper_bound(feed.messages, gap.last, {}, &FeedMessage::sequence);
        return static_cast<std::uint64_t>(to - from) == gap.last - gap.first + 1;
    };
    const bool all_sent = all_sent_is_received(log, feed);
    const std::uint64_t last_received = feed.messages.empty() ? 0 : feed.messages.back().sequence;
    for (const FeedGap& gap : feed.gaps) {
        if (gap.planned || recovered(gap)) continue;
        std::string otherwise;
        if (!log.feed_lost_here.empty()) otherwise = log.feed_lost_here;
        if (!log.wire_incomplete.empty()) otherwise = log.wire_incomplete;
        if (!log.venue_log_incomplete.empty()) otherwise = log.venue_log_incomplete;
        if (gap.in_truth && !all_sent)
            otherwise = "the book truth has lines of these numbers: the machine lost them on their way";
        if (gap.first == 1) otherwise = "the recording begins later than the feed";
        if (gap.last > last_received) otherwise = "the recording ends before the feed";
        findings.contradiction_unless(
            otherwise, bench_rule::feed_number,
            {.expected = "message " + number_text(gap.first, gap.last) + ", or a line that says it was dropped",
             .got = "neither, and nothing else of it either",
             .where = {.feed_number = gap.first}});
    }
}

}  // namespace kavo::companion

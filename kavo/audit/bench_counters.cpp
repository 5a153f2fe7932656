#include "kavo/audit/bench_counters.h"

#include <algorithm>

namespace kavo::companion {

namespace {

class CounterAudit {
public:
    CounterAudit(const Journal& journal, const BenchLog& log, const RecordedFeed& feed, BenchFindings& findings)
        : journal_(journal), log_(log), feed_(feed), findings_(findings) {}

    void audit() {
        if (log_.orders_incomplete.empty()) audit_order_counters();
        if (log_.venue_log_incomplete.empty()) audit_commentary();
        audit_feed_counters();
    }

private:
    void audit_order_counters() {
        const std::uint64_t accepts = lines("new");
        const std::uint64_t rejects = lines("reject");
        const std::string from = "lines of the order truth";
        equals("orders", accepts + rejects, from);
        equals("accepts", accepts, from);
        equals("rejects", rejects, from);
        equals("fills", lines("fill"), from);
        equals("cancels", lines("cancel"), from);
        equals("replaces", lines("replace"), from);
        equals("unsolicited_cancels", lines("cancel", "unsolicited"), from);
        equals("late_cancels", lines("cancel_reject", "late"), from);
        equals("stale_cancels", lines("cancel_reject", "stale"), from);
        // A replace under another participant counts as well, and leaves no line.
        lies_between("replace_rejects", lines("replace_reject", "duplicate") + lines("replace_reject", "invalid"),
                     UINT64_MAX, from);
    }

    void audit_commentary() {
        const std::string from = "lines of venue.log";
        equals("logins", log_.logins, from);
        equals("replays", log_.replays, from);
        equals("replayed", log_.replayed, from);
        equals("partials", log_.partial_fills, from);
        equals("race_fills", log_.lost_races, from);
        equals("dropped", log_.dropped.size(), from);
        equals("duplicated", total(log_.doubled), from);
        equals("reordered", total(log_.held), from);
    }

    // A datagram that was held is sent, but may have been overwritten or still be held.
    void audit_feed_counters() {
        const std::string from = "the recorded feed";
        lies_between("next_seq", feed_.last_used + 1, UINT64_MAX, from);
        const auto sent = value("sent");
        const auto doubled = value("duplicated");
        if (!sent || !doubled || !log_.wire_incomplete.empty()) return;
        if (feed_.datagrams > *sent + *doubled) {
            wrong("sent", std::to_string(feed_.datagrams - *doubled) + " or more, from " + from, *sent);
        }
    }

    std::uint64_t lines(std::string_view event, std::string_view text = {}) const {
        return static_cast<std::uint64_t>(std::ranges::count_if(journal_.orders, [&](const OrderLine& line) {
            return line.event == event && (text.empty() || line.text == text);
        }));
    }

    static std::uint64_t total(const std::map<std::uint64_t, std::uint64_t>& counts) {
        std::uint64_t sum = 0;
        for (const auto& [number, count] : counts) sum += count;
        return sum;
    }

    std::optional<std::uint64_t> value(const std::string& label) const {
        const auto found = log_.report->find(label);
        if (found == log_.report->end()) return std::nullopt;
        return found->second;
    }

    void equals(const std::string& label, std::uint64_t counted, const std::string& from) {
        lies_between(label, counted, counted, from);
    }

    void lies_between(const std::string& label, std::uint64_t least, std::uint64_t most, const std::string& from) {
        const auto reported = value(label);
        if (!reported || (*reported >= least && *reported <= most)) return;
        wrong(label, std::to_string(least) + (most == least ? "" : " or more") + ", from " + from, *reported);
    }

    void wrong(const std::string& label, const std::string& expected, std::uint64_t reported) {
        findings_.contradiction(bench_rule::counter,
                                {.expected = label + " " + expected,
                                 .got = label + " " + std::to_string(reported) + " in the final report"});
    }

    const Journal& journal_;
    const BenchLog& log_;
    const RecordedFeed& feed_;
    BenchFindings& findings_;
};

}  // namespace

void audit_counters(const Journal& journal, const BenchLog& log, const RecordedFeed& feed, BenchFindings& findings) {
    if (log.report) CounterAudit(journal, log, feed, findings).audit();
}

}  // namespace kavo::companion

#include <algorithm>
#include <array>
#include <cstdio>

#include "kavo/basics/printable.h"
#include "kavo/report/report.h"

namespace kavo::companion {

namespace {

// A line of a report: two blanks, a word, and what it stands for.
void say(std::string& out, std::string_view word, const std::string& text) {
    if (text.empty()) return;
    out += "  ";
    out += word;
    out.append(word.size() < 10 ? 10 - word.size() : 1, ' ');
    out += text + "\n";
}

std::string count(std::uint64_t number, const char* singular, const char* plural) {
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

std::string seconds(double ms) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", ms / 1000);
    return text.data();
}

std::string joined(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) line += (line.empty() ? "" : " ") + printable(word);
    return line;
}

std::string place_of(const Finding& finding, const Report& report) {
    std::string place = since_start(finding.where.moment.ns, report.facts.started_ns);
    const auto add = [&place](const std::string& part) { place += (place.empty() ? "" : "  ") + part; };
    if (!finding.where.user.empty()) add("user " + printable(finding.where.user));
    if (!finding.where.order.empty()) add("order " + printable(finding.where.order));
    if (finding.where.stream_number != 0) add("stream number " + std::to_string(finding.where.stream_number));
    if (finding.where.feed_number != 0) add("feed number " + std::to_string(finding.where.feed_number));
    if (finding.where.moment.packet != 0) add("packet " + std::to_string(finding.where.moment.packet));
    return place;
}

std::string in_capitals(std::string_view text) {
    std::string word{text};
    std::transform(word.begin(), word.end(), word.begin(), [](char c) { return static_cast<char>(std::toupper(c)); });
    return word;
}

std::string headline(const Group& group) {
    std::string line = in_capitals(grade_word(group.grade)) + "  " + std::string(group.rule->name);
    if (group.findings.size() > 1) line += "  (" + std::to_string(group.findings.size()) + " times; the first:)";
    return line + "\n";
}

std::string told(const Group& group, const Report& report) {
    const Finding& finding = *group.findings.front();
    std::string out = headline(group);
    say(out, "where", place_of(finding, report));
    say(out, "rule", std::string(group.rule->sentence) + "  " + std::string(group.rule->page));
    say(out, "expected", printable_sentence(finding.expected));
    say(out, "got", printable_sentence(finding.got));
    say(out, "truth", printable_sentence(finding.truth));
    say(out, "belief", printable_sentence(finding.belief));
    say(out, "because", printable_sentence(finding.because));
    return out + "\n";
}

std::string gaps_of(const Verdict::Counts& counts) {
    const std::uint64_t all = counts.gaps_planned + counts.gaps_kernel + counts.gaps_relay + counts.gaps_unrecovered;
    if (all == 0) return "none";
    return std::to_string(counts.gaps_planned) + " planned by the bench, " + std::to_string(counts.gaps_kernel) +
           " lost in the kernel, " + std::to_string(counts.gaps_relay) + " by the relay, " +
           std::to_string(counts.gaps_unrecovered) + " never recovered";
}

std::string least_slack(const Verdict& verdict) {
    const auto nearest = std::min_element(
        verdict.slack.begin(), verdict.slack.end(),
        [](const Slack& a, const Slack& b) { return a.least_ms * b.limit_ms < b.least_ms * a.limit_ms; });
    if (nearest == verdict.slack.end()) return {};
    return seconds(nearest->least_ms) + " of " + seconds(nearest->limit_ms) + " left at worst, before " +
           std::string(nearest->rule->name);
}

std::string summary(const Report& report) {
    const Verdict::Counts& counts = report.verdict.counts;
    std::string out;
    say(out, "command", joined(report.command));
    say(out, "bench",
        "seed " + std::to_string(report.facts.seed) +
            (report.facts.scenario.empty() ? "" : ", scenario " + printable(report.facts.scenario)) + ", " +
            count(counts.book_lines + counts.order_lines, "line", "lines") + " of truth");
    say(out, "feed",
        count(counts.feed_messages, "message", "messages") + " in " + count(counts.datagrams, "datagram", "datagrams") +
            "; gaps: " + gaps_of(counts));
    say(out, "client",
        count(counts.users, "user", "users") + ", " + count(counts.logins, "login", "logins") + ", " +
            count(counts.requests, "request", "requests") + ", " + count(counts.responses, "answer", "answers") + ", " +
            count(counts.recoveries, "recovery", "recoveries") + ", " + count(counts.beliefs, "belief", "beliefs"));
    say(out, "slack", least_slack(report.verdict));
    for (const std::string& defect : report.defects) say(out, "missing", printable(defect));
    say(out, "kept in", printable(report.folder.path.string()) + "  (verdict.html, wire.pcapng; kavo show tells more)");
    return out;
}

}  // namespace

std::string_view status_word(Status status) {
    switch (status) {
        case Status::right: return "right";
        case Status::findings: return "findings";
        case Status::usage: return "usage";
        case Status::bench: return "bench";
        case Status::inconclusive: return "inconclusive";
    }
    return "bench";
}

std::string_view status_sentence(Status status) {
    switch (status) {
        case Status::right: return "nothing speaks against the client";
        case Status::findings: return "the client is wrong";
        case Status::bench: return "the venue contradicts itself, so nothing is said about the client";
        default: return "nothing certain can be said";
    }
}

std::string_view grade_word(Grade grade) {
    switch (grade) {
        case Grade::remark: return "remark";
        case Grade::finding: return "finding";
        case Grade::inconclusive: return "inconclusive";
        case Grade::bench: return "bench";
    }
    return "bench";
}

std::vector<Group> grouped(const Verdict& verdict) {
    std::vector<Group> groups;
    for (const Finding& finding : verdict.findings) {
        const auto same = [&finding](const Group& group) {
            return group.rule == finding.rule && group.grade == finding.grade;
        };
        auto group = std::find_if(groups.begin(), groups.end(), same);
        if (group == groups.end()) group = groups.insert(groups.end(), Group{finding.rule, finding.grade, {}});
        group->findings.push_back(&finding);
    }
    const auto gravity = [](Grade grade) {  // the bench acquits the client, so it is told first
        switch (grade) {
            case Grade::bench: return 0;
            case Grade::finding: return 1;
            case Grade::inconclusive: return 2;
            case Grade::remark: return 3;
        }
        return 3;
    };
    std::stable_sort(groups.begin(), groups.end(),
                     [&](const Group& a, const Group& b) { return gravity(a.grade) < gravity(b.grade); });
    return groups;
}

std::string text_report(const Report& report, std::size_t groups) {
    const std::vector<Group> all = grouped(report.verdict);
    const Status status = report.verdict.status();
    std::string out = in_capitals(status_word(status)) + ": " + std::string(status_sentence(status)) + "  (" +
                      seconds(static_cast<double>(report.ended_ns - report.facts.started_ns) / 1e6) + ")\n" +
                      summary(report) + "\n";
    for (std::size_t i = 0; i < all.size() && i < groups; ++i) out += told(all[i], report);
    if (all.size() > groups) {
        out += "and " + count(all.size() - groups, "rule more", "rules more") + " in " +
               printable(report.folder.verdict("txt").string()) + "\n";
    }
    return out;
}

}  // namespace kavo::companion

#include "kavo/report/page_verdict.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>

#include "kavo/basics/printable.h"

namespace kavo::companion {

namespace {

constexpr std::size_t most_findings_of_a_rule = 20;
constexpr std::size_t most_sentence_bytes = 4'000;

// "<dt>name</dt><dd>...</dd>": the text is markup already.
std::string fact(std::string_view name, const std::string& markup) {
    if (markup.empty()) return {};
    return "<dt>" + for_markup(name) + "</dt><dd>" + markup + "</dd>\n";
}

std::string shortened(std::string_view text) {
    return text.size() > most_sentence_bytes ? for_markup(text.substr(0, most_sentence_bytes)) + " ..."
                                             : for_markup(text);
}

// Of a finding.
std::string sentence(std::string_view text) {
    const bool whole = text.size() <= most_sentence_bytes;
    return sentence_for_markup(text.substr(0, most_sentence_bytes)) + (whole ? "" : " ...");
}

std::string counted(std::uint64_t number, const char* singular, const char* plural) {
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

std::string place_markup(const Where& where, const BenchFacts& facts) {
    std::string place = since_start(where.moment.ns, facts.started_ns);
    const auto add = [&place](const std::string& part) { place += (place.empty() ? "" : ", ") + part; };
    if (!where.user.empty()) add("user " + shortened(where.user));
    if (!where.order.empty()) add("order <code>" + shortened(where.order) + "</code>");
    if (where.stream_number != 0) add("number " + std::to_string(where.stream_number) + " of the stream");
    if (where.feed_number != 0) add("number " + std::to_string(where.feed_number) + " of the feed");
    if (where.moment.packet != 0) add("packet " + std::to_string(where.moment.packet));
    return place;
}

// Truth and belief are told when they say more than what was expected and what was there instead.
std::string finding_facts(const Finding& finding, const BenchFacts& facts) {
    const auto holds = [](const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    };
    std::string out = "<dl class=\"facts finding-facts\">";
    out += fact("where", place_markup(finding.where, facts));
    out += fact("expected", with_differences(finding.expected, finding.got));
    out += fact("got", with_differences(finding.got, finding.expected));
    if (!holds(finding.expected, finding.truth)) out += fact("truth", sentence(finding.truth));
    if (!holds(finding.got, finding.belief)) out += fact("belief", sentence(finding.belief));
    out += fact("because", sentence(finding.because));
    return out + "</dl>\n";
}

std::string card(const Group& group, const BenchFacts& facts) {
    const std::size_t count = group.findings.size();
    const std::string grade{grade_word(group.grade)};
    std::string out = "<section class=\"card\"><h3><span class=\"" + grade + "\">" + grade + "</span> <code>" +
                      for_markup(group.rule->name) + "</code>" +
                      (count > 1 ? " <span class=\"soft\">" + std::to_string(count) + " times</span>" : "") +
                      "</h3>\n<p>" + for_markup(group.rule->sentence) + " <span class=\"soft\">" +
                      for_markup(group.rule->page) + "</span></p>\n" + finding_facts(*group.findings.front(), facts);
    if (count == 1) return out + "</section>\n";
    out += "<details><summary>" + std::to_string(count - 1) + " more</summary>\n";
    for (std::size_t i = 1; i < count && i < most_findings_of_a_rule; ++i)
        out += finding_facts(*group.findings[i], facts);
    if (count > most_findings_of_a_rule) {
        out += "<p class=\"soft\">" + std::to_string(count - most_findings_of_a_rule) +
               " of them are left out here; <code>verdict.json</code> has them all.</p>";
    }
    return out + "</details></section>\n";
}

std::string gaps_told(const Verdict::Counts& counts) {
    if (counts.gaps_planned + counts.gaps_kernel + counts.gaps_relay + counts.gaps_unrecovered == 0) return "no gaps";
    return "gaps: " + std::to_string(counts.gaps_planned) + " planned by the bench, " +
           std::to_string(counts.gaps_kernel) + " lost in the kernel, " + std::to_string(counts.gaps_relay) +
           " by the relay, " + std::to_string(counts.gaps_unrecovered) + " never recovered";
}

std::string facts_of(const Report& report) {
    const Verdict::Counts& counts = report.verdict.counts;
    std::string command;
    for (const std::string& word : report.command) command += (command.empty() ? "" : " ") + shortened(word);
    std::string out = "<dl class=\"facts\">" + fact("command", command.empty() ? "" : "<code>" + command + "</code>");
    out += fact("bench", "seed " + std::to_string(report.facts.seed) +
                             (report.facts.scenario.empty() ? "" : ", scenario " + shortened(report.facts.scenario)) +
                             ", kavo " + for_markup(report.facts.version));
    out += fact("feed", counted(counts.feed_messages, "message", "messages") + " in " +
                            counted(counts.datagrams, "datagram", "datagrams") + "; " + gaps_told(counts));
    out += fact("client", counted(counts.users, "user", "users") + ", " + counted(counts.logins, "login", "logins") +
                              ", " + counted(counts.requests, "request", "requests") + ", " +
                              counted(counts.responses, "answer", "answers") + ", " +
                              counted(counts.recoveries, "recovery", "recoveries") + " of the feed, " +
                              counted(counts.beliefs, "belief", "beliefs"));
    for (const std::string& defect : report.defects) out += fact("missing", shortened(defect));
    return out + "</dl>\n";
}

// What was looked at, with what became of it: that nothing was found says something only then.
std::string rules_of(const Report& report, const std::vector<Group>& groups) {
    if (report.rules.empty()) return {};
    std::string out = "<details class=\"card\"><summary>" + counted(report.rules.size(), "rule", "rules") +
                      " looked at</summary><ul class=\"rules\">\n";
    for (const Rule* rule : report.rules) {
        const auto group = std::find_if(groups.begin(), groups.end(), [&](const Group& it) { return it.rule == rule; });
        out += "<li><code>" + for_markup(rule->name) + "</code> ";
        if (group != groups.end()) {
            const std::string grade{grade_word(group->grade)};
            out.append("<b class=\"").append(grade).append("\">").append(grade).append("</b> ");
        }
        out += "<span class=\"soft\">" + for_markup(rule->sentence) + "</span></li>\n";
    }
    return out + "</ul></details>\n";
}

std::string_view without_comma(std::string_view word) {
    if (!word.empty() && word.back() == ',') word.remove_suffix(1);
    return word;
}

std::vector<std::string_view> words_of(std::string_view text) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const auto end = text.find(' ');
        words.push_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return words;
}

}  // namespace

std::string with_differences(std::string_view text, std::string_view other) {
    if (text.size() > most_sentence_bytes || other.size() > most_sentence_bytes) return sentence(text);
    std::set<std::string_view> words;
    for (const std::string_view word : words_of(other)) words.insert(without_comma(word));
    // Two texts with little in common are no two versions of one: marks would be all over them.
    const std::vector<std::string_view> own = words_of(text);
    const auto same =
        std::count_if(own.begin(), own.end(), [&](std::string_view word) { return words.count(without_comma(word)); });
    if (static_cast<std::size_t>(same) * 2 < own.size() || own.size() < 4) return sentence(text);
    std::string out;
    bool of_a_place = false;  // "line 10", "since 151": where it was said is no part of what was said
    for (const std::string_view word : own) {
        const bool names_a_place = word == "line" || word == "since";
        const bool differs = words.count(without_comma(word)) == 0 && !names_a_place && !of_a_place;
        const std::string markup = sentence_for_markup(word);
        out += (out.empty() ? "" : " ") + (differs ? "<mark>" + markup + "</mark>" : markup);
        of_a_place = names_a_place;
    }
    return out;
}

std::string verdict_section(const Report& report) {
    const Status status = report.verdict.status();
    const std::string word{status_word(status)};
    std::array<char, 32> seconds{};
    std::snprintf(seconds.data(), seconds.size(), "%.2f s",
                  static_cast<double>(report.ended_ns - report.facts.started_ns) / 1e9);
    const std::vector<Group> groups = grouped(report.verdict);
    std::string out = "<h1><span class=\"status " + word + "\">" + word + "</span> " +
                      std::string(status_sentence(status)) + " <span class=\"soft\">" + seconds.data() +
                      "</span></h1>\n" + facts_of(report);
    for (const Group& group : groups) out += card(group, report.facts);
    return out + rules_of(report, groups);
}

}  // namespace kavo::companion

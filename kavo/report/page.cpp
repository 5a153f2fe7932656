#include "kavo/report/page.h"

#include "kavo/basics/printable.h"
#include "kavo/report/page_data.h"

namespace kavo::companion {

namespace {

std::string element(std::string_view name, std::string_view style, std::string_view text) {
    return "<" + std::string(name) + " class=\"" + std::string(style) + "\">" + for_markup(text) + "</" +
           std::string(name) + ">";
}

void fact(std::string& out, std::string_view name, std::string_view text) {
    if (!text.empty()) out += "<dt>" + for_markup(name) + "</dt><dd>" + for_markup(text) + "</dd>\n";
}

std::string section_of(const Group& group, const Report& report) {
    std::string out = "<section class=\"card\"><p><b class=\"" + std::string(grade_word(group.grade)) + "\">" +
                      for_markup(grade_word(group.grade)) + "</b> <code>" + for_markup(group.rule->name) + "</code>" +
                      (group.findings.size() > 1 ? " " + std::to_string(group.findings.size()) + " times" : "") +
                      "<br>" + for_markup(group.rule->sentence) + " <span class=\"soft\">" +
                      for_markup(group.rule->page) + "</span></p>\n";
    constexpr std::size_t most = 20;
    for (std::size_t i = 0; i < group.findings.size() && i < most; ++i) {
        const Finding& finding = *group.findings[i];
        out += "<dl class=\"facts\">";
        fact(out, "when", since_start(finding.where.moment.ns, report.facts.started_ns));
        fact(out, "user", finding.where.user);
        fact(out, "order", finding.where.order);
        if (finding.where.feed_number != 0) fact(out, "feed number", std::to_string(finding.where.feed_number));
        if (finding.where.stream_number != 0) fact(out, "stream number", std::to_string(finding.where.stream_number));
        if (finding.where.moment.packet != 0) fact(out, "packet", std::to_string(finding.where.moment.packet));
        fact(out, "expected", finding.expected);
        fact(out, "got", finding.got);
        fact(out, "truth", finding.truth);
        fact(out, "belief", finding.belief);
        fact(out, "because", finding.because);
        out += "</dl>\n";
    }
    if (group.findings.size() > most) out += "<p class=\"soft\">the rest is in verdict.json</p>";
    return out + "</section>\n";
}

std::string verdict_of(const Report& report) {
    const Verdict::Counts& counts = report.verdict.counts;
    const std::string_view word = status_word(report.verdict.status());
    std::string out = "<h1>" + element("span", "status " + std::string(word), word) + " a run of " +
                      for_markup(report.command.empty() ? "the bench" : report.command.front()) +
                      "</h1>\n<dl class=\"facts\">";
    std::string command;
    for (const std::string& part : report.command) command += part + " ";
    fact(out, "command", command);
    fact(out, "bench",
         "seed " + std::to_string(report.facts.seed) +
             (report.facts.scenario.empty() ? "" : ", scenario " + report.facts.scenario) + ", kavo " +
             report.facts.version);
    fact(out, "feed",
         std::to_string(counts.feed_messages) + " messages in " + std::to_string(counts.datagrams) +
             " datagrams; gaps: " + std::to_string(counts.gaps_planned) + " planned, " +
             std::to_string(counts.gaps_kernel) + " kernel, " + std::to_string(counts.gaps_relay) + " relay, " +
             std::to_string(counts.gaps_unrecovered) + " unrecovered");
    fact(out, "client",
         std::to_string(counts.users) + " users, " + std::to_string(counts.logins) + " logins, " +
             std::to_string(counts.requests) + " requests, " + std::to_string(counts.responses) + " answers, " +
             std::to_string(counts.recoveries) + " recoveries, " + std::to_string(counts.beliefs) + " beliefs");
    for (const std::string& defect : report.defects) fact(out, "missing", defect);
    out += "</dl>\n";
    for (const Group& group : grouped(report.verdict)) out += section_of(group, report);
    return out;
}

// Inside a script element nothing ends it but its own end tag, which no "<" may begin.
std::string for_script(const Json& json) {
    std::string out;
    for (const char letter : json.dump(-1, ' ', true, Json::error_handler_t::replace)) {
        out += letter == '<' ? std::string("\\u003c") : std::string(1, letter);
    }
    return out;
}

std::string data_of(const Report& report, const Journal& journal) {
    const Beliefs beliefs = read_beliefs(journal.folder).value_or(Beliefs{});
    const FeedPicture feed = picture_of_feed(journal, feed_circumstances(journal));
    const Picture picture{report, journal, beliefs, feed};
    return for_script(Json{{"length_ms", picture.ms(report.ended_ns)},
                           {"feed", feed_points(picture)},
                           {"spans", gap_spans(picture)},
                           {"events", run_events(picture)},
                           {"orders", order_lives(picture)},
                           {"books", book_histories(picture)}});
}

}  // namespace

std::string page(const Report& report, const Journal& journal) {
    std::string out;
    std::string_view left = page_template;
    while (!left.empty()) {
        const auto mark = left.find("{{");
        out += left.substr(0, mark);
        if (mark == std::string_view::npos) break;
        left.remove_prefix(mark + 2);
        const std::string_view name = left.substr(0, left.find("}}"));
        left.remove_prefix(name.size() + 2);
        if (name == "title") out += "kavo: " + std::string(status_word(report.verdict.status()));
        if (name == "verdict") out += verdict_of(report);
        if (name == "data") out += data_of(report, journal);
    }
    return out;
}

}  // namespace kavo::companion

#include <nlohmann/json.hpp>

#include "kavo/basics/printable.h"
#include "kavo/report/report.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::ordered_json;

Json place_of(const Where& where, const BenchFacts& facts) {
    Json json = Json::object();
    if (where.moment.ns != 0) {
        json["t"] = where.moment.ns;
        json["since_start_s"] =
            static_cast<double>(static_cast<std::int64_t>(where.moment.ns - facts.started_ns)) / 1e9;
    }
    if (where.moment.packet != 0) json["packet"] = where.moment.packet;
    if (!where.user.empty()) json["user"] = printable(where.user);
    if (!where.order.empty()) json["order"] = printable(where.order);
    if (where.feed_number != 0) json["feed_number"] = where.feed_number;
    if (where.stream_number != 0) json["stream_number"] = where.stream_number;
    return json;
}

Json told(const Finding& finding, const BenchFacts& facts) {
    return Json{{"rule", finding.rule->name},
                {"grade", grade_word(finding.grade)},
                {"sentence", finding.rule->sentence},
                {"page", finding.rule->page},
                {"expected", printable_sentence(finding.expected)},
                {"got", printable_sentence(finding.got)},
                {"truth", printable_sentence(finding.truth)},
                {"belief", printable_sentence(finding.belief)},
                {"because", printable_sentence(finding.because)},
                {"where", place_of(finding.where, facts)}};
}

Json told(const Verdict::Counts& counts) {
    return Json{{"feed_messages", counts.feed_messages},
                {"datagrams", counts.datagrams},
                {"book_lines", counts.book_lines},
                {"order_lines", counts.order_lines},
                {"users", counts.users},
                {"logins", counts.logins},
                {"requests", counts.requests},
                {"responses", counts.responses},
                {"recoveries", counts.recoveries},
                {"gaps_planned", counts.gaps_planned},
                {"gaps_kernel", counts.gaps_kernel},
                {"gaps_relay", counts.gaps_relay},
                {"gaps_unrecovered", counts.gaps_unrecovered},
                {"beliefs", counts.beliefs}};
}

template <typename Texts>
Json all_printable(const Texts& texts) {
    Json list = Json::array();
    for (const std::string& text : texts) list.push_back(printable(text));
    return list;
}

}  // namespace

std::string json_report(const Report& report) {
    const Status status = report.verdict.status();
    Json json{{"kavo", report.facts.version},
              {"status", status_word(status)},
              {"exit", static_cast<int>(status)},
              {"seed", report.facts.seed},
              {"scenario", printable(report.facts.scenario)},
              {"dir", printable(report.folder.path.string())},
              {"command", all_printable(report.command)},
              {"started_ns", report.facts.started_ns},
              {"ended_ns", report.ended_ns},
              {"counts", told(report.verdict.counts)},
              {"findings", Json::array()},
              {"slack", Json::array()},
              {"missing", all_printable(report.defects)},
              {"rules", Json::array()}};
    for (const Group& group : grouped(report.verdict)) {
        for (const Finding* finding : group.findings) json["findings"].push_back(told(*finding, report.facts));
    }
    for (const Slack& slack : report.verdict.slack) {
        json["slack"].push_back(
            Json{{"rule", slack.rule->name}, {"least_ms", slack.least_ms}, {"limit_ms", slack.limit_ms}});
    }
    for (const Rule* rule : report.rules) json["rules"].push_back(rule->name);
    return json.dump(2) + "\n";
}

}  // namespace kavo::companion

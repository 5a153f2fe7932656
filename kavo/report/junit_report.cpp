#include <algorithm>
#include <array>
#include <cstdio>

#include "kavo/basics/printable.h"
#include "kavo/report/report.h"

namespace kavo::companion {

namespace {

struct Tally {
    std::size_t failures = 0;
    std::size_t errors = 0;
};

std::string told(const Finding& finding) {
    std::string text;
    const auto add = [&text](const char* word, const std::string& said) {
        if (!said.empty()) text += std::string(word) + ": " + sentence_for_markup(said) + "\n";
    };
    add("expected", finding.expected);
    add("got", finding.got);
    add("truth", finding.truth);
    add("belief", finding.belief);
    add("because", finding.because);
    add("user", printable(finding.where.user));
    add("order", printable(finding.where.order));
    if (finding.where.moment.packet != 0) add("packet", std::to_string(finding.where.moment.packet));
    return text;
}

// What a test case holds that has not passed. A case has one failure or error at most: the gravest tells.
std::string outcome(const Group& group, Tally& tally) {
    if (group.grade == Grade::remark) return {};
    const bool failed = group.grade == Grade::finding;
    ++(failed ? tally.failures : tally.errors);
    const std::string kind = failed ? "failure" : "error";
    std::string text = "    <" + kind + " type=\"" + std::string(grade_word(group.grade)) + "\" message=\"" +
                       for_markup(group.rule->sentence) + "\">";
    for (const Finding* finding : group.findings) text += told(*finding);
    return text + "</" + kind + ">\n";
}

std::string test_case(const Rule& rule, const std::vector<Group>& groups, Tally& tally) {
    const auto dot = rule.name.find('.');
    std::string text = "  <testcase classname=\"kavo." + for_markup(rule.name.substr(0, dot)) + "\" name=\"" +
                       for_markup(rule.name) + "\" time=\"0\"";
    const auto group = std::find_if(groups.begin(), groups.end(), [&](const Group& it) { return it.rule == &rule; });
    const std::string inside = group == groups.end() ? "" : outcome(*group, tally);
    return text + (inside.empty() ? "/>\n" : ">\n" + inside + "  </testcase>\n");
}

}  // namespace

std::string junit_report(const Report& report) {
    const std::vector<Group> groups = grouped(report.verdict);
    std::vector<const Rule*> rules = report.rules;
    for (const Group& group : groups) {
        if (std::find(rules.begin(), rules.end(), group.rule) == rules.end()) rules.push_back(group.rule);
    }
    Tally tally;
    std::string cases;
    for (const Rule* rule : rules) cases += test_case(*rule, groups, tally);

    std::array<char, 32> seconds{};
    std::snprintf(seconds.data(), seconds.size(), "%.3f",
                  static_cast<double>(report.ended_ns - report.facts.started_ns) / 1e9);
    const std::string totals = " tests=\"" + std::to_string(rules.size()) + "\" failures=\"" +
                               std::to_string(tally.failures) + "\" errors=\"" + std::to_string(tally.errors) +
                               "\" skipped=\"0\" time=\"" + seconds.data() + "\"";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + totals + ">\n<testsuite name=\"kavo\"" + totals +
           ">\n  <properties>\n    <property name=\"seed\" value=\"" + std::to_string(report.facts.seed) +
           "\"/>\n    <property name=\"scenario\" value=\"" + for_markup(report.facts.scenario) +
           "\"/>\n    <property name=\"status\" value=\"" + std::string(status_word(report.verdict.status())) +
           "\"/>\n    <property name=\"dir\" value=\"" + for_markup(report.folder.path.string()) +
           "\"/>\n  </properties>\n" + cases + "</testsuite>\n</testsuites>\n";
}

}  // namespace kavo::companion

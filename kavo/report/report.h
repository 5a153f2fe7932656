// The verdict on a run as people and programs read it. All of them say the same; the texts in them are printable,
// whatever ids the client made up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/audit/finding.h"
#include "kavo/basics/folder.h"

namespace kavo::companion {

struct Report {
    const RunFolder& folder;
    const BenchFacts& facts;
    const Verdict& verdict;
    const std::vector<std::string>& defects;  // of the journal
    std::vector<std::string> command;         // the user's; empty when there was none
    std::vector<const Rule*> rules;           // all that were looked at
    std::uint64_t ended_ns = 0;
};

std::string_view status_word(Status status);      // "right", "findings", "usage", "bench", "inconclusive"
std::string_view status_sentence(Status status);  // "the client is wrong"
std::string_view grade_word(Grade grade);         // "remark", "finding", "inconclusive", "bench"

// Findings of one rule in one grade, in the order of the run.
struct Group {
    const Rule* rule = nullptr;
    Grade grade = Grade::finding;
    std::vector<const Finding*> findings;
};
// The gravest first; rules in the order of their first finding.
std::vector<Group> grouped(const Verdict& verdict);

// For a terminal. One finding of each rule is told whole; `groups` is how many rules are told, and the last line says
// where the rest stands.
std::string text_report(const Report& report, std::size_t groups = static_cast<std::size_t>(-1));
// One JSON object; see docs/kavo.md for its keys.
std::string json_report(const Report& report);
// JUnit XML: a test case for each rule, a failure for findings, an error for what the bench did or cannot be said.
std::string junit_report(const Report& report);

// All of them, and the page, into the folder of the run. Throws Problem when one cannot be written.
void write_reports(const Report& report, const Journal& journal);

}  // namespace kavo::companion

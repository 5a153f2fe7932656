// What an audit has found, as a line for a test to compare: "finding session.hole | remark session.next-number".
#pragma once

#include <string>

#include "kavo/audit/finding.h"

namespace kavo::companion::test {

inline std::string grade_text(Grade grade) {
    switch (grade) {
        case Grade::remark: return "remark";
        case Grade::finding: return "finding";
        case Grade::inconclusive: return "inconclusive";
        case Grade::bench: return "bench";
    }
    return "no grade";
}

inline std::string found(const Verdict& verdict) {
    std::string text;
    for (const Finding& finding : verdict.findings) {
        text += (text.empty() ? "" : " | ") + grade_text(finding.grade) + " " + std::string(finding.rule->name);
    }
    return text.empty() ? "nothing" : text;
}

}  // namespace kavo::companion::test

#include "kavo/audit/finding.h"

#include <algorithm>

namespace kavo::companion {

Status Verdict::status() const {
    const auto has = [this](Grade grade) {
        return std::any_of(findings.begin(), findings.end(), [grade](const Finding& it) { return it.grade == grade; });
    };
    if (has(Grade::bench)) return Status::bench;
    if (has(Grade::finding)) return Status::findings;
    if (has(Grade::inconclusive)) return Status::inconclusive;
    return Status::right;
}

}  // namespace kavo::companion

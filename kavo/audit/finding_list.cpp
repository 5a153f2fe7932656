#include "kavo/audit/finding_list.h"

#include <cstdio>

namespace kavo::companion {

void FindingList::content(Finding finding) {
    if (!journal_.defects.empty()) {
        return doubtful(std::move(finding), "the recording is not whole: " + journal_.defects.front());
    }
    finding.grade = Grade::finding;
    add(std::move(finding));
}

void FindingList::timed(Finding finding, std::uint64_t from_ns, std::uint64_t to_ns) {
    if (around_.was_late(from_ns, to_ns)) {
        return doubtful(std::move(finding), "the machine was late meanwhile");
    }
    content(std::move(finding));
}

void FindingList::doubtful(Finding finding, const std::string& because) {
    finding.grade = Grade::inconclusive;
    finding.because = because;
    add(std::move(finding));
}

void FindingList::remark(Finding finding) {
    finding.grade = Grade::remark;
    add(std::move(finding));
}

void FindingList::add(Finding finding) {
    Kind& kind = kinds_[{finding.rule->name, finding.where.user}];
    if (kind.told++ < most_of_a_kind) return verdict_.findings.push_back(std::move(finding));
    kind.last = std::move(finding);
}

void FindingList::finish() {
    for (auto& [name, kind] : kinds_) {
        if (kind.told <= most_of_a_kind) continue;
        Finding& last = kind.last;
        last.grade = Grade::remark;
        last.because = "the last of " + std::to_string(kind.told - most_of_a_kind) + " more that are not told";
        verdict_.findings.push_back(std::move(last));
    }
    kinds_.clear();
}

std::string FindingList::time(std::uint64_t ns) const {
    const std::uint64_t begun = journal_.facts.started_ns;
    const double seconds = ns >= begun ? static_cast<double>(ns - begun) / 1e9 : -static_cast<double>(begun - ns) / 1e9;
    char text[48];
    std::snprintf(text, sizeof text, "%+.3f s", seconds);
    return text;
}

}  // namespace kavo::companion

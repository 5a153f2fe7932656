#include "kavo/audit/audit.h"

#include <algorithm>
#include <limits>

namespace kavo::companion {

// A bench that contradicts itself says nothing about a client, so the client is not looked at then.
Verdict audit(const Journal& journal, const std::function<void(double)>& progress) {
    Verdict verdict;
    audit_bench(journal, verdict, progress);
    audit_run(journal, verdict);
    if (verdict.status() != Status::bench) {
        audit_sessions(journal, verdict);
        audit_orders(journal, verdict);
        audit_recovery(journal, verdict);
        audit_beliefs(journal, verdict);
    }
    std::ranges::stable_sort(verdict.findings, {}, [](const Finding& finding) {
        const std::uint64_t ns = finding.where.moment.ns;
        return ns == 0 ? std::numeric_limits<std::uint64_t>::max() : ns;  // a moment that is not known comes last
    });
    return verdict;
}

}  // namespace kavo::companion

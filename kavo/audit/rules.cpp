#include "kavo/audit/rules.h"

#include <algorithm>

#include "kavo/audit/audit.h"
#include "kavo/audit/recovery_rules.h"

namespace kavo::companion {

std::vector<const Rule*> all_rules() {
    std::vector<const Rule*> rules;
    for (const std::span<const Rule> table : {session_rules(), order_rules(), recovery_rules(), run_rules()}) {
        for (const Rule& rule : table) rules.push_back(&rule);
    }
    std::sort(rules.begin(), rules.end(), [](const Rule* a, const Rule* b) { return a->name < b->name; });
    return rules;
}

}  // namespace kavo::companion

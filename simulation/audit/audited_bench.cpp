#include "audit/audited_bench.h"

namespace kavo::simulation {

AuditedBench::AuditedBench(const Plan& plan)
    : disconnect_after(plan.scenario.disconnect_after), scenario_lapse_ms(plan.scenario.lapse_ms) {
    reject.every = plan.scenario.reject_every;
    partial_fill.every = plan.scenario.partial_fill_every;
    fill_on_cancel.every = plan.scenario.fill_on_cancel_every;
    unsolicited_cancel.every = plan.scenario.unsolicited_cancel_every;
    replace_reject.every = plan.scenario.replace_reject_every;
}

std::string AuditedBench::statistics() const {
    return "orders=" + std::to_string(reject.occasions) + " accepts=" + std::to_string(accepts) +
           " fills=" + std::to_string(fills) + " partials=" + std::to_string(partials) +
           " cancels=" + std::to_string(cancels) + " replaces=" + std::to_string(replaces) +
           " rejects=" + std::to_string(rejects) + " replace_rejects=" + std::to_string(replace_rejects) +
           " unsolicited_cancels=" + std::to_string(unsolicited_cancels) + " race_fills=" + std::to_string(race_fills) +
           " late_cancels=" + std::to_string(late_cancels) + " stale_cancels=" + std::to_string(stale_cancels) +
           " logins=" + std::to_string(logins) + " replays=" + std::to_string(replays) +
           " replayed=" + std::to_string(replayed);
}

}  // namespace kavo::simulation

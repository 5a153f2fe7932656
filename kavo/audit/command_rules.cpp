// What the user's own command says about itself: its exit status.
#include <nlohmann/json.hpp>

#include "kavo/audit/audit.h"

namespace kavo::companion {

namespace {

constexpr Rule succeeds{"command.succeeds", "The command under test ends with status 0.", "docs/kavo.md#kavo-test"};

}  // namespace

std::span<const Rule> command_rules() {
    return {&succeeds, 1};
}

void audit_command(const Journal& journal, Verdict& verdict) {
    for (const Note& note : journal.notes) {
        if (note.event != "command_end") continue;
        const auto facts = nlohmann::json::parse(note.json, nullptr, false);
        const int status = facts.is_object() ? facts.value("status", 0) : 0;
        const int signal = facts.is_object() ? facts.value("signal", 0) : 0;
        if (status == 0 && signal == 0) continue;
        Finding finding;
        finding.rule = &succeeds;
        finding.expected = "status 0";
        finding.got = signal != 0 ? "ended by signal " + std::to_string(signal) : "status " + std::to_string(status);
        finding.where.moment.ns = note.t_ns;
        verdict.findings.push_back(finding);
    }
}

}  // namespace kavo::companion

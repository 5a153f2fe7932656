#include <CLI/CLI.hpp>
#include <memory>

#include "kavo/verbs/judge.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* audit_examples =
    "Examples:\n"
    "  kavo audit runs/42              the verdict on a run, again; writes verdict.* into the folder\n"
    "  kavo audit runs/42 --all        every finding\n"
    "  kavo audit runs/42 --json --no-write | jq .status\n"
    "The exit status is that of `kavo test`: 0 right, 1 findings, 3 the bench, 4 inconclusive.";

}  // namespace

void add_audit(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("audit", "judge a run by its folder, as `kavo test` does at its end");
    const auto folder = std::make_shared<std::string>();
    const auto telling = std::make_shared<Telling>();
    verb->add_option("DIR", *folder, "the folder of a run")->required();
    verb->add_flag("--json", telling->json, "the verdict as JSON on standard output");
    verb->add_flag("--all", telling->all, "tell every rule with findings");
    verb->add_flag("--quiet", telling->quiet, "one line");
    verb->add_flag("!--no-write", telling->write, "leave verdict.* in the folder as they are");
    verb->footer(audit_examples);
    verb->callback(
        [&action, folder, telling] { action = [folder, telling] { return judge(RunFolder{*folder}, *telling); }; });
}

}  // namespace kavo::companion

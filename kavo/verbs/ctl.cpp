#include <CLI/CLI.hpp>

#include "kavo/basics/problem.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

void add_ctl(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("ctl", "");
    verb->callback([&action] { action = [] { return Status::usage; }; });
}

}  // namespace kavo::companion

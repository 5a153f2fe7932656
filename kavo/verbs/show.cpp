#include <CLI/CLI.hpp>

#include "kavo/basics/problem.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

void add_show(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("show", "");
    verb->callback([&action] { action = [] { return Status::usage; }; });
}

}  // namespace kavo::companion

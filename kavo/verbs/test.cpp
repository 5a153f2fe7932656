#include <CLI/CLI.hpp>

#include "kavo/basics/problem.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

void add_test(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("test", "");
    verb->callback([&action] { action = [] { return Status::usage; }; });
}

}  // namespace kavo::companion

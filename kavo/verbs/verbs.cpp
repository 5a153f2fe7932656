#include "kavo/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

constexpr const char* statuses =
    "Exit status: 0 right, 1 findings about the client, 2 usage, 3 the bench, 4 inconclusive.\n"
    "`kavo VERB --help` tells of each verb, with examples.";

}  // namespace

Status carry_out(int count, const char* const* words) {
    CLI::App app{"The command around the simulator: a private bench, a recording, and a verdict on a client.", "kavo"};
    app.set_version_flag("--version", std::string("kavo ") + KAVO_VERSION);
    app.require_subcommand(1);
    app.footer(statuses);
    Action action;
    for (const auto add :
         {add_run, add_test, add_show, add_audit, add_feed, add_trade, add_ctl, add_record, add_replay}) {
        add(app, action);
    }
    try {
        app.parse(count, words);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Status::right : Status::usage;
    }
    try {
        return action();
    } catch (const Problem& problem) {
        std::cerr << "kavo: " << problem.what() << "\n";
        return problem.status;
    }
}

}  // namespace kavo::companion

// The verbs of the command line. Each add_ function declares one: its options, its help that teaches by example, and
// what it does. A verb answers the status with which the program ends, or throws a Problem.
#pragma once

#include <functional>

#include "kavo/basics/status.h"

namespace CLI {
class App;
}

namespace kavo::companion {

// Reads the command line and carries out its verb.
Status carry_out(int count, const char* const* words);

// What the chosen verb does. Set by its callback, called when the whole command line has been understood.
using Action = std::function<Status()>;

void add_run(CLI::App& app, Action& action);
void add_test(CLI::App& app, Action& action);
void add_show(CLI::App& app, Action& action);
void add_audit(CLI::App& app, Action& action);
void add_feed(CLI::App& app, Action& action);
void add_trade(CLI::App& app, Action& action);
void add_ctl(CLI::App& app, Action& action);
void add_record(CLI::App& app, Action& action);
void add_replay(CLI::App& app, Action& action);

}  // namespace kavo::companion

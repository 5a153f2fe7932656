// kavo run: a private bench, until somebody ends it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>

#include "kavo/basics/problem.h"
#include "kavo/bench/bench.h"
#include "kavo/bench/signals.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* run_examples = R"(Examples:
  kavo run                                       a bench in a temporary folder; end it with Ctrl-C
  kavo run --dir runs/1 -- --seed 7 --acod       flags behind -- go to kavo_me
  kavo run --scenario reject_every=7,lapse_ms=2000
  kavo run --isolated                            the default group and ports, in a network of its own

In a shell script:
  kavo run --dir run > ready.json &              one line of JSON, as soon as the bench is ready
  until [ -s ready.json ]; do kill -0 $! || exit; sleep 0.01; done
  my_client --port $(jq .orders_port ready.json)
  kill $! && wait $!                             everything is written; see kavo show, kavo audit

The line of JSON tells pid, ports, group, seed and the paths of all files. SIGINT, SIGTERM and SIGHUP end the venue in
good order, and whatever ends kavo, even kill -9, leaves nothing behind.
Exit status: 0 ended when it was asked to, 2 usage, 3 the venue could not start, ended by itself, or could not write.)";

struct RunOptions {
    BenchWishes wishes;
    bool while_stdin = false;
};

// A harness that dies closes its end of kavo's standard input, however it dies.
void watch_standard_input(Loop& loop, bool& stop) {
    loop.watch(STDIN_FILENO, POLLIN, [&loop, &stop](short) {
        char ignored[4096];
        const ssize_t count = read(STDIN_FILENO, ignored, sizeof ignored);
        if (count > 0) return;
        loop.forget(STDIN_FILENO);
        stop = true;
    });
}

void say_ready(const Bench& bench) {
    std::cout << facts_line(bench.facts(), bench.folder()) << std::endl;
    if (!std::cout) throw Problem(Status::bench, "cannot write to standard output: is the disk full?");
}

Status run(const RunOptions& options) {
    Loop loop;
    bool stop = false;
    const StopSignals signals(loop, [&stop](int) { stop = true; });
    if (options.while_stdin) watch_standard_input(loop, stop);
    Bench bench(loop, options.wishes);
    say_ready(bench);
    while (!stop && bench.running()) loop.turn(std::chrono::hours(1));
    if (!bench.running()) throw Problem(Status::bench, bench.last_words());
    const int ended = bench.stop();
    if (ended != 0) throw Problem(Status::bench, bench.last_words());
    return Status::right;
}

}  // namespace

void add_run(CLI::App& app, Action& action) {
    CLI::App* verb =
        app.add_subcommand("run", "A private bench: leased ports, a folder of its own, ready when it says so.");
    const auto options = std::make_shared<RunOptions>();
    verb->add_option("--scenario", options->wishes.scenario, "scripted misbehaviour, as name=rough,reject_every=7");
    verb->add_option("--dir", options->wishes.folder, "folder of the run, new or empty; else a temporary one, removed");
    verb->add_flag("--isolated", options->wishes.isolated, "a network of its own, with the default group and ports");
    verb->add_option("--venue", options->wishes.venue, "the simulator; else $KAVO_ME, or kavo_me beside kavo");
    verb->add_flag("--while-stdin", options->while_stdin, "end when standard input does, for a harness that may die");
    verb->add_option("flags", options->wishes.flags, "of kavo_me, behind --");
    verb->footer(run_examples);
    verb->allow_extras();
    verb->callback([&action, options, verb] {
        std::vector<std::string> unknown = verb->remaining();
        std::erase(unknown, "--");
        action = [options, unknown] {
            if (unknown.empty()) return run(*options);
            throw Problem(Status::usage, unknown.front() +
                                             " is no option of kavo run. Flags of kavo_me go behind --, as "
                                             "in kavo run -- --seed 7.");
        };
    });
}

}  // namespace kavo::companion

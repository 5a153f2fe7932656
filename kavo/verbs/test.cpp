#include <CLI/CLI.hpp>
#include <csignal>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/bench/bench.h"
#include "kavo/scene/scene.h"
#include "kavo/verbs/judge.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* test_examples =
    R"(Starts a bench, runs your test command beside it with KAVO_* in its environment, stops the bench, and says whether
what was on the wire, and what your client believed, is right.

Examples:
  kavo test -- ./my_client                            the market moves, nothing is damaged
  kavo test --with "--drop-every 20" -- ./my_client   every twentieth datagram is lost
  kavo test --scenario reject_every=7,lapse_ms=5000 -- pytest tests
  kavo test --junit reports/kavo.xml --html reports/kavo.html -- ./my_client
  kavo test --script rough.txt --dir run -- ./my_client --orders 100
  kavo test -- sh -c './my_client --orders $KAVO_ORDERS --feed $KAVO_FEED --iface $KAVO_IFACE'

A script is one step a line:
  at 500ms: control drop 1
  when c01 rests b1: house take 300 of it
  whenever c01 cancels any: control fill_on_cancel 1
  after 1s: relay c01 orders cut

Exit status: 0 right, 1 findings about the client, 2 usage, 3 the bench, 4 inconclusive.)";

struct Wishes {
    BenchWishes bench;
    std::vector<std::string> flags;  // as they were given: each may be several words
    std::string seed;
    std::string script;
    double longest_s = 600;
    Telling telling;
    std::vector<std::string> command;
};

std::string content_of(const std::string& file) {
    std::ifstream in(file);
    if (!in) throw Problem(Status::usage, "cannot read the script " + file);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The first of kavo-test, kavo-test-2, kavo-test-3, ... that is not there. Whoever makes it has it.
std::filesystem::path fresh_folder() {
    for (int i = 1; i < 10'000; ++i) {
        std::filesystem::path folder = "kavo-test" + (i == 1 ? "" : "-" + std::to_string(i));
        std::error_code error;
        if (std::filesystem::create_directory(folder, error)) return folder;
        if (error)
            throw Problem(Status::bench,
                          "cannot make a folder for the run here (" + error.message() + "): name one with --dir");
    }
    throw Problem(Status::usage,
                  "there are ten thousand folders kavo-test-N here: remove some, or name one with --dir");
}

class TestRun {
public:
    explicit TestRun(const Wishes& wishes)
        : wishes_(wishes),
          steps_(wishes.script.empty() ? std::vector<ScriptStep>{} : read_script(content_of(wishes.script))) {}

    // The folder of the run, when the command has ended and so has the bench.
    RunFolder play() {
        Bench bench(loop_, wishes_.bench);
        Scene scene(loop_, bench, steps_);
        bench.start_command(wishes_.command, [this](int wait_status) { ended_ = wait_status; });
        const auto longest = std::chrono::milliseconds{static_cast<std::int64_t>(wishes_.longest_s * 1000)};
        const bool in_time = loop_.turn_until([&] { return ended_ || !bench.running(); }, longest);
        if (!ended_) end_command(bench);
        note_ends(bench, scene, in_time);
        bench.stop();
        return bench.folder();
    }

private:
    void end_command(Bench& bench) {
        using namespace std::chrono_literals;
        for (const int number : {SIGTERM, SIGKILL}) {
            bench.signal_command(number);
            if (loop_.turn_until([this] { return ended_.has_value(); }, 5s)) return;
        }
    }

    void note_ends(Bench& bench, const Scene& scene, bool in_time) const {
        const int status = ended_.value_or(0);
        bench.log().write(now_ns(), "command_end",
                          {{"status", std::int64_t{WIFEXITED(status) ? WEXITSTATUS(status) : 0}},
                           {"signal", std::int64_t{WIFSIGNALED(status) ? WTERMSIG(status) : 0}},
                           {"timed_out", !in_time}});
        if (scene.left() == 0) return;
        bench.log().write(now_ns(), "script_left",
                          {{"line", static_cast<std::int64_t>(scene.next_step().line)},
                           {"text", std::string_view(scene.next_step().text)}});
    }

    const Wishes& wishes_;
    std::vector<ScriptStep> steps_;
    Loop loop_;
    std::optional<int> ended_;
};

Status test(Wishes wishes) {
    for (const std::string& flags : wishes.flags) {
        std::istringstream words(flags);
        for (std::string word; words >> word;) wishes.bench.flags.push_back(word);
    }
    if (!wishes.seed.empty()) wishes.bench.flags.insert(wishes.bench.flags.end(), {"--seed", wishes.seed});
    TestRun run(wishes);
    check_files(wishes.telling);
    if (wishes.bench.folder.empty()) wishes.bench.folder = fresh_folder();
    return judge(run.play(), wishes.telling);
}

}  // namespace

void add_test(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("test", "run a test command on a bench of its own, and judge the client");
    const auto wishes = std::make_shared<Wishes>();
    verb->add_option("--scenario", wishes->bench.scenario, "scripted misbehaviour, such as reject_every=7");
    verb->add_option("--with", wishes->flags, "flags of the simulator, in quotes")->allow_extra_args(false);
    verb->add_option("--seed", wishes->seed, "of the market");
    verb->add_option("--script", wishes->script, "a scene to be played meanwhile");
    verb->add_option("--dir", wishes->bench.folder, "where everything is kept (kavo-test, kavo-test-2, ...)");
    verb->add_option("--timeout", wishes->longest_s, "seconds that the command may take")
        ->capture_default_str()
        ->check(CLI::Range(0.1, 86'400.0));
    verb->add_option("--venue", wishes->bench.venue, "the simulator's program");
    verb->add_flag("--isolated", wishes->bench.isolated, "in a network namespace of its own");
    verb->add_option("--html", wishes->telling.html, "a copy of the page, verdict.html, in this file");
    verb->add_option("--junit", wishes->telling.junit, "a copy of the JUnit XML, verdict.xml, in this file");
    verb->add_flag("--json", wishes->telling.json, "the verdict as JSON on standard output");
    verb->add_flag("--all", wishes->telling.all, "tell every rule with findings");
    verb->add_flag("--quiet", wishes->telling.quiet, "one line");
    verb->add_option("command", wishes->command, "your test command, behind --")->required();
    verb->footer(test_examples);
    verb->callback([&action, wishes] { action = [wishes] { return test(*wishes); }; });
}

}  // namespace kavo::companion

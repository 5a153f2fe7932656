#include "kavo/bench/bench.h"

#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>

#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/bench/canary.h"
#include "kavo/bench/catching_up.h"
#include "kavo/bench/control_words.h"
#include "kavo/bench/environment.h"
#include "kavo/bench/isolation.h"
#include "kavo/bench/keeper.h"
#include "kavo/bench/place.h"
#include "kavo/bench/ports.h"
#include "kavo/bench/readiness.h"
#include "kavo/bench/venue_output.h"
#include "kavo/bench/wishes.h"

namespace kavo::companion {

namespace {

using namespace std::chrono_literals;

constexpr auto longest_start = 10s;
constexpr auto longest_stop = 10s;
constexpr auto longest_farewell = 500ms;  // a relay that holds back holds back the end too
constexpr auto written_check_interval = 1s;

std::string ending_of(int wait_status) {
    if (WIFSIGNALED(wait_status)) {
        const int number = WTERMSIG(wait_status);
        return "signal " + std::to_string(number) + " (" + strsignal(number) + ")";
    }
    return "exit status " + std::to_string(WEXITSTATUS(wait_status));
}

std::int64_t exit_status(int wait_status) {
    return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
}

std::int64_t end_signal(int wait_status) {
    return WIFSIGNALED(wait_status) ? WTERMSIG(wait_status) : 0;
}

}  // namespace

// In the order in which things are made; they end the other way round, the keeper and the lease last.
struct Bench::Inside {
    Loop& loop;
    BenchFacts facts;
    PortLease lease;
    std::unique_ptr<Keeper> keeper;
    RunFolder folder;
    std::optional<RunLog> log;
    std::optional<Recording> recording;
    std::optional<VenueOutput> output;
    std::optional<FeedTap> feed;
    std::optional<Relay> orders;
    std::optional<Relay> recovery;
    std::optional<ControlWords> control;
    std::optional<Canary> canary;
    Loop::Timer written_check = 0;

    std::optional<int> ended;  // the venue, with the status of waitpid
    bool keeper_lost = false;
    bool stopping = false;
    bool temporary = false;  // the folder: nobody reads what is in it
    std::function<void(int)> command_ended;

    explicit Inside(Loop& its_loop) : loop(its_loop) {}
    ~Inside() { loop.cancel(written_check); }

    void open_everything(const std::function<void(std::string_view)>& told);
    void start_venue(const std::vector<std::string>& flags);
    void await_ready();
    void hear_of_end(Kept which, int wait_status);
    void hear_of_loss();
    void check_written();
    void check_again_soon();
    void catch_up();
    std::string how_it_ended() const;
};

namespace {

void keep_ports(const BenchPorts& ports, BenchFacts& facts) {
    facts.orders_port = ports.orders;
    facts.recovery_port = ports.recovery;
    facts.orders_behind_port = ports.orders_behind;
    facts.recovery_behind_port = ports.recovery_behind;
    facts.feed_port = ports.feed;
    facts.control_port = ports.control;
}

}  // namespace

// What can be refused is refused before there is anything to put away.
Bench::Bench(Loop& loop, const BenchWishes& wishes) : inside_(std::make_unique<Inside>(loop)) {
    Inside& in = *inside_;
    in.facts.version = KAVO_VERSION;
    in.facts.scenario = wishes.scenario;
    check_environment();
    check_scenario(wishes.scenario);
    read_flags(wishes.flags, in.facts);
    const std::filesystem::path venue = find_venue(wishes.venue);
    if (wishes.isolated) in.facts.enter = isolate();
    check_interface(in.facts.interface_address);
    if (wishes.isolated) {
        in.lease.ports = default_ports();
    } else {
        in.lease = lease_ports();
    }
    keep_ports(in.lease.ports, in.facts);

    in.temporary = wishes.folder.empty();
    const std::filesystem::path place = in.temporary ? temporary_name() : wishes.folder;
    in.keeper = std::make_unique<Keeper>(loop, in.temporary ? place : std::filesystem::path{});
    in.folder = prepare_folder(place);
    in.open_everything([this](std::string_view line) {
        if (on_line) on_line(line);
    });
    in.facts.command = {venue.string()};
    in.start_venue(wishes.flags);
    in.await_ready();
    write_facts(in.facts, in.folder.bench());
    in.canary.emplace(loop, *in.log);
    in.check_again_soon();
}

Bench::~Bench() = default;

void Bench::Inside::open_everything(const std::function<void(std::string_view)>& told) {
    keeper->on_end = [this](Kept which, int wait_status) { hear_of_end(which, wait_status); };
    keeper->on_lost = [this] { hear_of_loss(); };
    Descriptor orders_listener = listen_on(facts.orders_port);
    Descriptor recovery_listener = listen_on(facts.recovery_port);
    log.emplace(folder.log());
    recording.emplace(folder.wire());
    output.emplace(loop, keeper->venue_errors(), folder.venue_log());
    output->on_line = told;
    feed.emplace(loop, *recording, *log, facts.group, facts.feed_port, facts.interface_address);
    feed->one_sender = true;  // the venue, which nobody can be ahead of
    orders.emplace(loop, *recording, *log, orders_listener.release(), facts.orders_behind_port);
    recovery.emplace(loop, *recording, *log, recovery_listener.release(), facts.recovery_behind_port);
    control.emplace(loop, facts.control_port);
}

void Bench::Inside::start_venue(const std::vector<std::string>& flags) {
    const auto add = [this](const char* flag, const std::string& value) {
        facts.command.emplace_back(flag);
        facts.command.push_back(value);
    };
    add("--port", std::to_string(facts.feed_port));
    add("--meo-port", std::to_string(facts.orders_behind_port));
    add("--retrans-port", std::to_string(facts.recovery_behind_port));
    add("--control-port", std::to_string(facts.control_port));
    add("--truth-out", folder.book_truth().string());
    facts.command.insert(facts.command.end(), flags.begin(), flags.end());
    facts.started_ns = now_ns();
    facts.pid = keeper->start(Kept::venue, facts.command, venue_environment(facts, folder));
}

void Bench::Inside::await_ready() {
    Readiness readiness(loop, *output, *control);
    const auto told = output->on_line;
    output->on_line = [&](std::string_view line) {
        readiness.hear(line);
        told(line);
    };
    const auto done = [&] { return readiness.ready() || !readiness.failure().empty() || ended; };
    const bool in_time = loop.turn_until(done, longest_start);
    output->drain();
    output->on_line = told;
    if (ended) throw Problem(Status::bench, how_it_ended());
    const std::string failure = in_time ? readiness.failure() : "the venue was not ready within ten seconds";
    if (!failure.empty()) throw Problem(Status::bench, failure + "." + output->last_lines());
    const std::uint64_t now = now_ns();
    log->write(now, "ready", {{"ms", static_cast<std::int64_t>((now - facts.started_ns) / ns_per_ms)}});
}

void Bench::Inside::hear_of_end(Kept which, int wait_status) {
    if (which == Kept::venue) {
        ended = wait_status;
        log->write(now_ns(), "venue_end",
                   {{"status", exit_status(wait_status)}, {"signal", end_signal(wait_status)}, {"stopped", stopping}});
        return;
    }
    feed->look();
    const auto call = std::exchange(command_ended, {});
    if (call) call(wait_status);
}

// The system has killed what the keeper had started.
void Bench::Inside::hear_of_loss() {
    keeper_lost = true;
    if (!ended) hear_of_end(Kept::venue, SIGKILL);
    if (command_ended) hear_of_end(Kept::command, SIGKILL);
}

// With the market paused nothing is published behind what is fetched, so the truth of the books can be held against the
// feed to its last line. A venue that does not answer is not asked for more.
void Bench::Inside::catch_up() {
    std::optional<std::string> reply;
    control->send("pause", [&reply](std::string said) { reply = std::move(said); });
    loop.turn_until([&] { return reply || ended; }, longest_start);
    log->write(now_ns(), "control", {{"word", "pause"}, {"reply", std::string_view(reply.value_or(""))}});
    if (ended || !reply || reply->empty()) return;
    feed->drain();
    fetch_missing(loop, feed->received(), facts.house, facts.recovery_port);
}

std::string Bench::Inside::how_it_ended() const {
    if (keeper_lost) return "somebody killed the process that keeps the bench together, and the bench with it.";
    return "the venue has ended by itself, with " + ending_of(ended.value_or(0)) + "." + output->last_lines();
}

void Bench::Inside::check_written() {
    const bool whole = recording->flush() && log->whole() && output->whole();
    if (whole && !disk_is_full(folder)) return;
    throw Problem(Status::bench, "cannot write to " + folder.path.string() +
                                     ": the disk is full, or nearly so, and the run cannot be judged. Make room, or "
                                     "choose a folder on another disk with --dir.");
}

void Bench::Inside::check_again_soon() {
    written_check = loop.after(written_check_interval, [this] {
        check_written();
        check_again_soon();
    });
}

const BenchFacts& Bench::facts() const {
    return inside_->facts;
}
const RunFolder& Bench::folder() const {
    return inside_->folder;
}
RunLog& Bench::log() {
    return *inside_->log;
}
Relay& Bench::orders() {
    return *inside_->orders;
}
Relay& Bench::recovery() {
    return *inside_->recovery;
}
FeedTap& Bench::feed() {
    return *inside_->feed;
}

void Bench::control(std::string_view word, std::function<void(std::string)> answered) {
    inside_->control->send(word, [this, word = std::string(word), answered = std::move(answered)](std::string reply) {
        inside_->log->write(now_ns(), "control",
                            {{"word", std::string_view(word)}, {"reply", std::string_view(reply)}});
        if (answered) answered(std::move(reply));
    });
}

void Bench::start_command(const std::vector<std::string>& command, std::function<void(int)> ended) {
    Inside& in = *inside_;
    if (in.keeper_lost) throw Problem(Status::bench, in.how_it_ended());
    const pid_t pid = in.keeper->start(Kept::command, command, command_environment(in.facts, in.folder));
    in.command_ended = std::move(ended);
    in.log->write(now_ns(), "command", {{"pid", static_cast<std::int64_t>(pid)}, {"words", command}});
    in.feed->look();
}

void Bench::signal_command(int number) {
    inside_->feed->look();
    inside_->keeper->signal(Kept::command, number);
}

bool Bench::running() const {
    return !inside_->ended;
}

std::string Bench::last_words() const {
    return inside_->how_it_ended();
}

int Bench::stop() {
    Inside& in = *inside_;
    const bool in_good_order = running();
    if (in_good_order && !in.temporary) in.catch_up();
    in.stopping = true;
    in.keeper->signal(Kept::venue, SIGTERM);
    if (!in.loop.turn_until([&in] { return in.ended.has_value(); }, longest_stop)) {
        in.keeper->signal(Kept::venue, SIGKILL);
        in.loop.turn_until([&in] { return in.ended.has_value(); }, longest_stop);
    }
    // Clients see the end through the relay.
    in.loop.turn_until([&in] { return in.orders->open_connections() + in.recovery->open_connections() == 0; },
                       longest_farewell);
    in.output->drain();
    in.feed->drain();
    in.canary->drain();
    in.check_written();
    const std::string wrong = cut_short(in.folder);
    if (in_good_order && in.ended == 0 && !wrong.empty()) {
        throw Problem(Status::bench, wrong + ": was the disk full? The run cannot be judged.");
    }
    return in.ended.value_or(SIGKILL);
}

}  // namespace kavo::companion

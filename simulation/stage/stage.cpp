#include "stage/stage.h"

#include <charconv>
#include <utility>

#include "app/statistics.h"

namespace kavo::simulation {

namespace {

constexpr std::string_view sequence_key = "{\"seq\":";

}  // namespace

Stage::Stage(const Plan& plan, std::uint64_t dice_seed, Tape& tape)
    : plan_(plan),
      dice_(dice_seed),
      tape_(tape),
      commentary_([this](std::string_view line) { tape_.push_back(line_of(What::commentary, line)); }),
      order_truth_([this](std::string_view line) { record(line_of(What::order_truth, line)); }),
      book_truth_([this](std::string_view line) { take_change_line(line); }),
      clock_(standing_clock(plan)),
      tick_interval_ms_(plan.tick_interval_ms),
      generator_(plan.market_seed),
      feed_(plan.engine.session, clock_, [this](ByteView datagram) { take_datagram(datagram); }),
      engine_(feed_, generator_, plan.engine, bench_, clock_),
      order_entry_(engine_, feed_, bench_, clock_, transport(clients_), plan.engine.session, plan.engine.quiet),
      retransmission_(feed_, clock_, transport(receivers_), plan.engine.session),
      control_port_(bench_, engine_, feed_, clock_, order_entry_, tick_interval_ms_) {}

Clock Stage::standing_clock(const Plan& plan) {
    Clock clock;
    clock.stand_at(plan.start_ms, plan.start_wall_ns);
    return clock;
}

void Stage::start_day() {
    tape_.push_back(clock_entry(now_ms(), wall_ns()));
    begin(Step::start_of_day);
    feed_.faults = plan_.faults;
    bench_.open_order_truth("/dev/null");
    order_truth_.attach_to(bench_.order_truth);
    if (plan_.bench.scripted()) bench_.arm_scenario(plan_.bench.scenario());
    engine_.book_truth.open("/dev/null");
    book_truth_.attach_to(engine_.book_truth);
    for (const Symbol& symbol : plan_.symbols) engine_.add_product(symbol.name, symbol.reference);
    feed_.send_start();
    engine_.start_day();
    const auto snapshot = [this](const std::string& text) { tape_.push_back(line_of(What::snapshot, text)); };
    loop_.emplace(
        LoopParts{clock_, bench_, feed_, engine_, order_entry_, retransmission_, control_port_, plan_.control_port},
        LoopSockets{}, SnapshotWriters{snapshot, snapshot}, tick_interval_ms_);
}

void Stage::pass() {
    for (std::size_t i = 0; i < MainLoop::steps().size(); ++i) {
        begin(static_cast<Step>(i));
        if (static_cast<Step>(i) == Step::commands) carry_out_commands();
        ((*loop_).*MainLoop::steps()[i].run)();
    }
}

void Stage::carry_out_commands() {
    for (const std::string& line : std::exchange(commands_, {})) {
        tape_.push_back(line_of(What::command, line));
        tape_.push_back(line_of(What::command_reply, control_port_.handle(line).text));
    }
}

void Stage::print_final_report() {
    begin(Step::end_of_day);
    kavo::print_final_report(bench_, feed_);
}

void Stage::let_pass(std::uint64_t ms, std::int64_t wall_ns) {
    if (ms != 0 || wall_ns != 0) move_clock(ms, wall_ns);
}

void Stage::move_clock(std::uint64_t ms, std::int64_t wall_ns) {
    const std::uint64_t wall = clock_.wall_ns() + ms * ns_per_ms + static_cast<std::uint64_t>(wall_ns);
    clock_.stand_at(clock_.steady_ms() + ms, wall);
    tape_.push_back(clock_entry(clock_.steady_ms(), wall));
}

void Stage::begin(Step step) {
    record(step_entry(step));
}

// A restless clock moves on within a pass as well, so that the readings of one pass differ: behind what goes in, and
// behind a line of order truth and a datagram, which may take a while to write and to send.
void Stage::record(Entry entry) {
    tape_.push_back(std::move(entry));
    if (!plan_.restless_clock || !dice_.one_in(20)) return;
    const std::uint64_t ms = dice_.below(4);
    const std::uint64_t ns = dice_.below(1'000'000);
    move_clock(ms, static_cast<std::int64_t>(ns));
}

const std::string& Stage::change_line(std::uint64_t sequence) const {
    static const std::string none;
    return sequence < change_lines_.size() ? change_lines_[static_cast<std::size_t>(sequence)] : none;
}

void Stage::take_change_line(std::string_view line) {
    tape_.push_back(line_of(What::book_truth, line));
    if (!line.starts_with(sequence_key)) return;
    std::size_t sequence = 0;
    std::from_chars(line.data() + sequence_key.size(), line.data() + line.size(), sequence);
    if (change_lines_.size() <= sequence) change_lines_.resize(sequence + 1);
    change_lines_[sequence] = line;
}

void Stage::take_datagram(ByteView datagram) {
    datagrams_.emplace_back(datagram.begin(), datagram.end());
    record(entry_of(What::datagram, 0, datagram));
}

}  // namespace kavo::simulation

#include "stage/stage.h"

#include <charconv>
#include <utility>

namespace kavo::simulation {

namespace {

constexpr std::string_view sequence_key = "{\"seq\":";

}  // namespace

Stage::Stage(const Plan& plan, std::uint64_t dice_seed, Tape& tape)
    : plan_(plan),
      dice_(dice_seed),
      tape_(tape),
      clock_(standing_clock(plan)),
      commentary_([this](std::string_view text) { put_lines(What::commentary, text); }) {}

Clock Stage::standing_clock(const Plan& plan) {
    Clock clock;
    clock.stand_at(plan.start_ms, plan.start_wall_ns);
    return clock;
}

Surroundings Stage::surroundings() {
    const auto snapshot = [this](const std::string& text) { tape_.push_back(line_of(What::snapshot, text)); };
    return {
        clock_,
        commentary_,
        [this](ByteView datagram) { take_datagram(datagram); },
        transport(clients_),
        transport(receivers_),
        commands(),
        {snapshot, snapshot},
        {plan_.limits.feed_messages, plan_.limits.stream_messages, plan_.limits.closed_ids, plan_.limits.held_bytes}};
}

void Stage::start_day() {
    tape_.push_back(clock_entry(now_ms(), wall_ns()));
    begin(Step::start_of_day);
    venue_.emplace(plan_.options(), surroundings());
    venue_->control_port.open = plan_.control_port;
    venue_->engine.order_truth.log.write_to([this](std::string_view line) { put_lines(What::order_truth, line); });
    venue_->engine.books.truth.write_to([this](std::string_view line) { put_lines(What::book_truth, line); });
    venue_->start_day();
}

void Stage::pass() {
    for (std::size_t i = 0; i < Venue::steps().size(); ++i) {
        begin(static_cast<Step>(i));
        ((*venue_).*Venue::steps()[i].run)();
    }
}

CommandSource Stage::commands() {
    const auto receive = [this]() -> std::optional<std::string_view> {
        if (commands_.empty()) {
            tape_.push_back(entry_of(What::no_command, 0));
            return std::nullopt;
        }
        command_ = commands_.front();
        commands_.pop_front();
        tape_.push_back(line_of(What::command, command_));
        return command_;
    };
    const auto reply = [this](std::string_view text) { tape_.push_back(line_of(What::command_reply, text)); };
    return {receive, reply, [] {}, plan_.limits.commands};
}

void Stage::print_final_report() {
    begin(Step::end_of_day);
    venue_->report_end();
}

void Stage::let_pass(std::uint64_t ms, std::int64_t wall_ns) {
    if (ms != 0 || wall_ns != 0) move_clock(ms, wall_ns);
}

void Stage::move_clock(std::uint64_t ms, std::int64_t wall_ns) {
    const std::uint64_t wall = clock_.wall_ns() + ms * ns_per_ms + static_cast<std::uint64_t>(wall_ns);
    clock_.stand_at(clock_.steady_ms() + ms, wall);
    tape_.push_back(clock_entry(clock_.steady_ms(), wall));
}

// The feed may forget within a pass, but no message before its datagram was to leave.
void Stage::take_published() {
    while (venue_ && published_.size() < venue_->feed.last_sequence()) {
        const ByteView message = venue_->feed.message(published_.size() + 1);
        published_.emplace_back(message.begin(), message.end());
    }
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

// Whole lines, of which standard error is told several at once.
void Stage::put_lines(What what, std::string_view text) {
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        if (what == What::book_truth) take_change_line(line);
        if (what == What::commentary) take_published();  // of a datagram that a fault befalls
        what == What::order_truth ? record(line_of(what, line)) : tape_.push_back(line_of(what, line));
    }
}

void Stage::take_change_line(std::string_view line) {
    if (!line.starts_with(sequence_key)) return;
    std::size_t sequence = 0;
    std::from_chars(line.data() + sequence_key.size(), line.data() + line.size(), sequence);
    if (change_lines_.size() <= sequence) change_lines_.resize(sequence + 1);
    change_lines_[sequence] = line;
}

void Stage::take_datagram(ByteView datagram) {
    take_published();
    datagrams_.emplace_back(datagram.begin(), datagram.end());
    record(entry_of(What::datagram, 0, datagram));
}

}  // namespace kavo::simulation

// Commands under audit: what each changes, says and replies.
#include <string>

#include "audit/auditor.h"
#include "model/controls.h"

namespace kavo::simulation {

void Auditor::take_commands() {
    witness_.expect_all(What::command, What::no_command, plan_.limits.commands,
                        [this](const Entry& entry) { carry_out(entry); });
}

void Auditor::carry_out(const Entry& entry) {
    const model::Command command = model::read_command(entry.text);
    if (const auto number = model::number_of(command)) carry_out(command.word, *number);
    if (command.word == "mark") mark(command.argument);
    const std::string statistics = bench_.statistics() + " next_seq=" + next_sequence() + " " +
                                   feed_.model.fault_summary() + sessions_.session_state();
    witness_.expect_line(What::command_reply, model::reply_to(command, statistics));
}

void Auditor::carry_out(std::string_view word, std::uint32_t number) {
    feed_.model.command(word, number);
    bench_.command(word, number);
    if (word == "disconnect") bench_.disconnect_requested = true;
    if (word == "rate") tick_interval_ms_ = static_cast<std::int32_t>(number);
    if (word == "lapse") {
        bench_.lapse_until_ms = tape_.now_ms() + number;
        bench_.lapse_announced = false;
    }
    if (word == "pause" || word == "resume") {
        orders_.venue.paused = word == "pause";
        witness_.expect_said("bench: " + std::string(word) + "d at seq " + std::to_string(feed_.last_sequence()));
    }
}

void Auditor::mark(std::string_view label) {
    witness_.expect_line(What::book_truth, model::mark_line(label, feed_.last_sequence()));
    witness_.expect_said("bench: mark " + std::string(label) + " at seq " + std::to_string(feed_.last_sequence()) +
                         " orders " + std::to_string(bench_.orders));
}

}  // namespace kavo::simulation

#include "faults.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace trading {

namespace {

constexpr std::array table{
    FaultName{Fault::applies_duplicates, "applies-duplicates", "applies a message of the feed as often as it comes"},
    FaultName{Fault::applies_late_datagrams, "applies-late-datagrams", "applies the feed in order of its arrival"},
    FaultName{Fault::asks_for_everything_again, "asks-for-everything-again",
              "asks for the whole day when one message of the feed is missing"},
    FaultName{Fault::asks_for_what_was_only_late, "asks-for-what-was-only-late",
              "asks at once for what a moment later would have come by itself"},
    FaultName{Fault::asks_from_the_wrong_number, "asks-from-the-wrong-number",
              "comes back asking for the last message that it has, and not for the next one"},
    FaultName{Fault::believes_a_cancel_that_lost_its_race, "believes-a-cancel-that-lost-its-race",
              "takes an order for cancelled when its cancel was refused"},
    FaultName{Fault::cancels_what_has_ended, "cancels-what-has-ended", "cancels orders that it was told have ended"},
    FaultName{Fault::counts_a_fill_twice, "counts-a-fill-twice", "adds up twice what a replay tells of executions"},
    FaultName{Fault::down_means_cancelled, "down-means-cancelled",
              "takes its orders for cancelled when the connection breaks"},
    FaultName{Fault::forgets_fills_on_replay, "forgets-fills-on-replay",
              "takes executions for news only when they arrive live"},
    FaultName{Fault::gives_up_when_recovery_is_cut, "gives-up-when-recovery-is-cut",
              "asks no more when one recovery of the feed has failed"},
    FaultName{Fault::hammers_the_login, "hammers-the-login", "tries again without a pause when its login is refused"},
    FaultName{Fault::hit_is_filled, "hit-is-filled", "takes an order for filled at its first execution"},
    FaultName{Fault::ignores_unsolicited_cancel, "ignores-unsolicited-cancel",
              "goes on believing in an order that the venue cancelled of its own accord"},
    FaultName{Fault::logs_in_from_zero, "logs-in-from-zero", "comes back asking for nothing that it has missed"},
    FaultName{Fault::merges_the_snapshot, "merges-the-snapshot",
              "fills gaps of the feed with a refresh, and adds it to the book that it has"},
    FaultName{Fault::never_heartbeats, "never-heartbeats", "says nothing while it has nothing to say"},
    FaultName{Fault::never_recovers_the_tail, "never-recovers-the-tail",
              "waits for the next message to show what is missing, and passes over heartbeats"},
    FaultName{Fault::orders_survive_disconnect, "orders-survive-disconnect",
              "goes on believing in orders that were cancelled because its connection broke"},
    FaultName{Fault::rejected_is_working, "rejected-is-working", "takes a rejected order for one that works"},
    FaultName{Fault::replace_size_is_leaves, "replace-size-is-leaves",
              "takes the total of a replace for what is still open"},
    FaultName{Fault::reuses_an_id, "reuses-an-id", "gives a new order the id of one that has ended"},
    FaultName{Fault::sends_after_goodbye, "sends-after-goodbye", "goes on talking when the venue has said goodbye"},
    FaultName{Fault::sends_before_login, "sends-before-login", "sends its first order before its login"},
    FaultName{Fault::skips_gaps, "skips-gaps", "goes on behind a hole of the feed as if nothing were missing"},
    FaultName{Fault::trusts_tcp_to_be_whole, "trusts-tcp-to-be-whole",
              "takes the messages of its stream as they come, whatever their numbers"},
    FaultName{Fault::waits_for_ever, "waits-for-ever", "stays with a venue that has fallen silent"},
};

}  // namespace

std::span<const FaultName> all_faults() {
    return table;
}

Fault fault_named(std::string_view name) {
    const auto found = std::ranges::find(table, name, &FaultName::name);
    if (found == table.end()) throw std::invalid_argument("no such fault: " + std::string(name) + "; see --faults");
    return found->fault;
}

}  // namespace trading

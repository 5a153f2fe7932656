// Mistakes that this client makes on request, so that whoever judges clients can be judged. Each is made in one place
// of the code, where somebody might really make it.
#pragma once

#include <span>
#include <string_view>

namespace trading {

enum class Fault {
    none,
    applies_duplicates,
    applies_late_datagrams,
    asks_for_everything_again,
    asks_for_what_was_only_late,
    asks_from_the_wrong_number,
    believes_a_cancel_that_lost_its_race,
    cancels_what_has_ended,
    counts_a_fill_twice,
    down_means_cancelled,
    forgets_fills_on_replay,
    gives_up_when_recovery_is_cut,
    hammers_the_login,
    hit_is_filled,
    ignores_unsolicited_cancel,
    logs_in_from_zero,
    merges_the_snapshot,
    never_heartbeats,
    never_recovers_the_tail,
    orders_survive_disconnect,
    rejected_is_working,
    replace_size_is_leaves,
    reuses_an_id,
    sends_after_goodbye,
    sends_before_login,
    skips_gaps,
    trusts_tcp_to_be_whole,
    waits_for_ever,
};

struct FaultName {
    Fault fault;
    std::string_view name;
    std::string_view sentence;
};

// All but `none`, in the order of their names.
std::span<const FaultName> all_faults();
// Throws std::invalid_argument for a name that there is not.
Fault fault_named(std::string_view name);

}  // namespace trading

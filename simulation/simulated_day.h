// One day of the venue, from one seed: who takes part, what they do, how it ends, and what the auditor says.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "actors/agenda.h"
#include "actors/client.h"
#include "actors/receiver.h"
#include "audit/auditor.h"
#include "plan.h"
#include "stage/stage.h"
#include "tape.h"

namespace kavo::simulation {

struct DayReport {
    std::string finding;       // empty when there is none
    std::size_t position = 0;  // on the tape, where it was made
    std::uint64_t passes = 0;
    std::uint64_t feed_messages = 0;
    std::uint64_t datagrams = 0;
    std::vector<model::Bench::Counter> counters;  // the bench's, then the feed's faults and replies
};

class SimulatedDay {
public:
    explicit SimulatedDay(std::uint64_t seed);

    void play();
    DayReport audit() const;
    const Tape& tape() const { return tape_; }

private:
    void act();
    void wait();
    void end_day();
    void pass_after(std::uint64_t ms);
    void hear_the_rest();
    void recover_the_rest();
    void fetch_history();
    std::string compare_with_actors(const Auditor& auditor) const;

    Dice dice_;
    Plan plan_;
    Tape tape_;
    Agenda agenda_;
    Stage stage_;
    std::deque<Receiver> receivers_;
    std::deque<Client> clients_;
    std::vector<Bytes> history_;  // every message of the feed
};

}  // namespace kavo::simulation

// A day from one seed: who takes part, and what they do.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "actors/agenda.h"
#include "actors/client.h"
#include "actors/receiver.h"
#include "day.h"

namespace kavo::simulation {

class SimulatedDay {
public:
    explicit SimulatedDay(std::uint64_t seed);

    void play();
    DayReport audit() const;
    const Tape& tape() const { return day_.tape; }

private:
    void act();
    void command();
    void wait();
    void end_day();
    void hear_the_rest();
    void recover_the_rest();
    std::string compare_with_actors(const Auditor& auditor) const;

    Dice dice_;
    Plan plan_;
    Day day_;
    Stage& stage_ = day_.stage;
    Agenda agenda_;
    std::deque<Receiver> receivers_;
    std::deque<Client> clients_;
};

}  // namespace kavo::simulation

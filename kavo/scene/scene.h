// Plays a script on a bench: waits for what its steps wait for, and carries them out. Each step that is carried out is
// a line of kavo.jsonl.
#pragma once

#include <vector>

#include "kavo/bench/bench.h"
#include "kavo/scene/house.h"
#include "kavo/scene/script.h"
#include "kavo/scene/sightings.h"

namespace kavo::companion {

class Scene {
public:
    // Begins at once. The script's times count from here.
    Scene(Loop& loop, Bench& bench, std::vector<ScriptStep> steps);

    // Steps that have not been carried out yet, those that begin with whenever left out.
    std::size_t left() const { return steps_.size() - next_; }
    // The first of them as it stands in the script; there must be one.
    const ScriptStep& next_step() const { return steps_[next_]; }

private:
    void go_on();
    void arm();
    void heard(const SceneEvent& event);
    void carry_out(const ScriptStep& step, const SceneEvent& event);
    void control(const ScriptStep& step);
    void trade(const std::vector<std::string>& action, const SceneEvent& event);
    void take(const std::vector<std::string>& action, const SceneEvent& event);
    void interfere(const std::vector<std::string>& action);

    Loop& loop_;
    Bench& bench_;
    std::vector<ScriptStep> steps_;
    std::vector<ScriptStep> standing_;  // whenever
    std::size_t next_ = 0;
    bool waiting_for_event_ = false;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    SceneEvent latest_;  // what "it" stands for, until another event is waited for
    Sightings sightings_;
    House house_;
};

}  // namespace kavo::companion

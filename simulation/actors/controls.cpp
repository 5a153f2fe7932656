#include "actors/controls.h"

#include <string_view>

#include "model/bench.h"

namespace kavo::simulation {

namespace {

constexpr std::string_view words[] = {
    "drop",  "dup",   "reorder", "drop_every", "dup_every", "reorder_every", "mark", "disconnect",
    "stats", "stats", "pause",   "resume",     "resume",    "lapse",         "rate", "hello",
};

// One of these, or of the scripted faults'.
std::string_view some_word(Dice& dice) {
    const auto faults = model::Bench().faults;
    const std::size_t choice = dice.below(std::size(words) + faults.size());
    return choice < faults.size() ? faults.at(choice).control_word : words[choice - faults.size()];
}

std::string argument_for(std::string_view word, Dice& dice) {
    if (word == "lapse") return std::to_string(dice.pick({0, 100, 1500, 4000}));
    if (word == "rate") return std::to_string(dice.pick({0, 5, 40, 100}));
    if (word == "mark") return "here";
    if (dice.one_in(6)) return dice.one_in(2) ? "" : "many";  // stands for the command's own default
    return std::to_string(dice.below(5));
}

}  // namespace

std::string some_command(Dice& dice) {
    const std::string_view word = some_word(dice);
    std::string line(word);
    line += " " + argument_for(word, dice);
    if (dice.one_in(5)) line += dice.pick({" \n", "\r\n", " and more"});
    return line;
}

}  // namespace kavo::simulation

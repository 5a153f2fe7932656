#include "actors/controls.h"

#include <string_view>

namespace kavo::simulation {

namespace {

constexpr std::string_view words[] = {
    "drop",           "dup",        "reorder", "drop_every", "dup_every",      "reorder_every",
    "reject",         "partial",    "partial", "mark",       "fill_on_cancel", "unsolicited_cancel",
    "replace_reject", "disconnect", "stats",   "stats",      "pause",          "resume",
    "resume",         "lapse",      "rate",    "hello",
};

std::string argument_for(std::string_view word, Dice& dice) {
    if (word == "lapse") return std::to_string(dice.pick({0, 100, 1500, 4000}));
    if (word == "rate") return std::to_string(dice.pick({0, 5, 40, 100}));
    if (word == "mark") return "here";
    if (dice.one_in(6)) return dice.one_in(2) ? "" : "many";  // stands for the command's own default
    return std::to_string(dice.below(5));
}

}  // namespace

std::string some_command(Dice& dice) {
    const std::string_view word = words[dice.below(std::size(words))];
    std::string line(word);
    line += " " + argument_for(word, dice);
    if (dice.one_in(5)) line += dice.pick({" \n", "\r\n", " and more"});
    return line;
}

}  // namespace kavo::simulation

// What the simulator understands: its flags, and the keys of a scenario. Each word stands here once, with the kind of
// its value. The simulator takes much in silence that cannot be meant; here it is refused in words.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kavo::companion {

enum class Kind {
    on_off,   // a flag without a value
    word,     // any text
    group,    // 224.0.0.0 to 239.255.255.255
    address,  // four numbers; whether an interface has it is another question
    port,     // 0 to 65535
    session,  // 1 to 255
    count,    // 0 to 4294967295
    integer,  // -2147483648 to 2147483647
    scale,    // a number of at least 0
    share,    // a number from 0 to 1
    burst,    // S or S:L, both from 1
    path,     // of a file that can be written
    symbols,  // NAME:PRICE or NAME, between commas
};

struct Word {
    std::string_view name;
    Kind kind;
    std::string_view own = {};  // what to do instead, for a flag that is the bench's own; empty for the user's
};

std::span<const Word> simulator_flags();
std::span<const Word> scenario_keys();
// Null when there is none.
const Word* find(std::span<const Word> words, std::string_view name);
// What somebody may have meant who wrote `name`: " Did you mean 'seed'?", or nothing when no word is near.
std::string suggestion(std::span<const Word> words, std::string_view name);

// What is wrong with a value, as the end of a sentence that begins with it: "is no number from 1 to 255". Empty when
// nothing is.
std::string wrong_with(Kind kind, std::string_view value);

// The names of a list of symbols that is right.
std::vector<std::string> symbol_names(std::string_view list);

}  // namespace kavo::companion

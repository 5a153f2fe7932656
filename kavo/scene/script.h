// A script that plays beside the user's command: one step a line, carried out in order.
//
//     at 500ms: control drop 1                       # since the command was started
//     after 200ms: relay c01 orders cut              # since the step before
//     when c01 rests b1: house take 300 of it        # what has happened already counts, when the order is named
//     when c01 rests any: control partial 1          # the next one from here on
//     whenever c01 cancels any: control fill_on_cancel 1    # each time, beside the other steps
//     note half time                                 # a line without a trigger is carried out at once
//
// Triggers:  at TIME | after TIME | when EVENT | whenever EVENT
// Events:    USER logs in | USER leaves | USER enters ID | USER is accepted ID | USER rests ID | USER is filled ID |
//            USER cancels ID | USER replaces ID | USER ends ID                          ID may be "any"
// Actions:   control WORD...            a command to the bench
//            house buy|sell ID QUANTITY PRICE|market SYMBOL [ioc|fok|post]
//            house cancel ID | house take QUANTITY of it|ID
//            relay USER orders|recovery latency TIME | bandwidth BYTES | piece BYTES | hold | release | swallow PACKETS
//            |
//                                       half | cut | reset | abandon
//            relay USER orders|recovery up|down ...      one direction alone; both unless told
//            note TEXT
// TIME is 200ms, 1.5s or 2s.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kavo::companion {

struct SceneEvent {
    enum class Kind { logs_in, leaves, enters, accepted, rests, filled, cancels, replaces, ends };
    Kind kind = Kind::logs_in;
    std::string user;
    std::string order;  // client order id; of a trigger "any" stands for each

    // True when this is what a trigger waits for.
    bool matches(const SceneEvent& trigger) const {
        return kind == trigger.kind && user == trigger.user && (trigger.order == "any" || order == trigger.order);
    }
};

struct ScriptStep {
    enum class Trigger { at_once, at, after, when, whenever };
    std::size_t line = 0;  // in the file, from 1
    std::string text;      // as it stands there, for the log
    Trigger trigger = Trigger::at_once;
    std::chrono::milliseconds time{0};
    SceneEvent event;
    std::vector<std::string> action;  // its words; never empty, and checked
};

// Throws Problem with the number of the line and what is wrong with it.
std::vector<ScriptStep> read_script(std::string_view text);

// "200ms", "1.5s"; throws Problem for anything else.
std::chrono::milliseconds read_time(std::string_view text);
// A whole number of at most 32 bits; throws Problem for anything else.
std::uint32_t read_count(std::string_view text);

}  // namespace kavo::companion

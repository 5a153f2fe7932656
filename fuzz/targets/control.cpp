// The control port's line: each command sets what it names and nothing else, and is answered word for word.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "app/control_port.h"
#include "harness/harness.h"
#include "harness/input.h"
#include "model/bench.h"
#include "model/controls.h"
#include "support/venue.h"

namespace kavo::fuzz {
namespace {

// Everything that a command can change, by the command's own word.
struct Knob {
    std::string_view word;
    std::uint64_t value;
    bool operator==(const Knob&) const = default;
};
using Knobs = std::vector<Knob>;

// A bench with or without a client that is logged in. What commands have changed is set back before every input.
struct Scene {
    explicit Scene(bool logged_in) {
        if (logged_in) venue.log_in("alice");
        venue.feed.publish(Bytes(20));
        venue.feed.flush();
        venue.engine.books.truth.write_to([this](std::string_view line) { marks += line; });
    }

    void set_back() {
        Bench& bench = venue.bench;
        venue.feed.faults = {};
        venue.engine.market.paused = false;
        venue.engine.market.interval_ms = 7;
        bench.disconnect_requested = bench.lapse_announced = false;
        bench.lapse_until_ms = 0;
        for (const ScriptedFault& fault : scripted_faults) bench.*fault.next = 0;
        marks.clear();
    }

    Knobs knobs() const {
        const Bench& bench = venue.bench;
        const FeedFaults& faults = venue.feed.faults;
        Knobs all{{"pause", venue.engine.market.paused},
                  {"drop", faults.drop_next},
                  {"dup", faults.dup_next},
                  {"reorder", faults.reorder_next},
                  {"drop_every", faults.drop_every},
                  {"dup_every", faults.dup_every},
                  {"reorder_every", faults.reorder_every},
                  {"rate", static_cast<std::uint32_t>(venue.engine.market.interval_ms)},
                  {"disconnect", bench.disconnect_requested},
                  {"lapse", bench.lapse_until_ms}};
        const auto scripted = model::Bench().faults;
        for (std::size_t i = 0; i < scripted.size(); ++i) {
            all.push_back({scripted[i].control_word, bench.*scripted_faults.at(i).next});
        }
        return all;
    }

    test::Venue venue{{.silent = true}};
    std::string marks;
    ControlPort& port = venue.venue.control_port;
};

// What a command makes of its knob.
std::uint64_t value_after(std::string_view word, std::uint32_t number) {
    if (word == "pause" || word == "disconnect") return 1;
    return word == "lapse" ? test::Venue::start_ms + number : number;
}

void carry_out(const model::Command& command, Knobs& knobs, std::string& marks) {
    const auto number = model::number_of(command);
    if (!number) return;
    if (command.word == "resume") knobs[0].value = 0;
    if (command.word == "mark") marks = model::mark_line(command.argument, 1) + "\n";
    const auto knob = std::ranges::find(knobs, command.word, &Knob::word);
    if (knob != knobs.end()) knob->value = value_after(command.word, *number);
}

std::string statistics(bool logged_in) {
    model::Bench bench;
    bench.logins = logged_in ? 1 : 0;
    return bench.statistics() + " next_seq=2 kavo_me faults: sent 1 dropped 0 duplicated 0 reordered 0" +
           (logged_in ? " session=up" : " session=down");
}

// The first byte chooses the bench, the rest is the datagram.
void command(ByteView bytes) {
    static Scene away(false);
    static Scene present(true);
    Input input(bytes);
    const bool logged_in = input.below(2) == 1;
    Scene& scene = logged_in ? present : away;
    scene.set_back();
    const std::string_view datagram = as_text(input.rest());

    Knobs knobs = scene.knobs();
    std::string marks;
    const model::Command literal = model::read_command(datagram);
    carry_out(literal, knobs, marks);
    require(scene.port.handle(datagram) == model::reply_to(literal, statistics(logged_in)),
            "a command is answered word for word");
    require(scene.knobs() == knobs, "a command changes what it names and nothing else");
    require(scene.marks == marks, "a mark is written with its label as received");
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::command);
}

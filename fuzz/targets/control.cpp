// The control port's line: each command sets what it names and nothing else, and is answered word for word.
#include <algorithm>
#include <array>
#include <sstream>
#include <string>

#include "app/control_port.h"
#include "harness/harness.h"
#include "harness/input.h"
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
using Knobs = std::array<Knob, 15>;

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
        bench.reject_next = bench.partial_next = bench.fill_on_cancel_next = 0;
        bench.unsolicited_cancel_next = bench.replace_reject_next = 0;
        marks.clear();
    }

    Knobs knobs() const {
        const Bench& bench = venue.bench;
        const FeedFaults& faults = venue.feed.faults;
        return {{{"pause", venue.engine.market.paused},
                 {"drop", faults.drop_next},
                 {"dup", faults.dup_next},
                 {"reorder", faults.reorder_next},
                 {"drop_every", faults.drop_every},
                 {"dup_every", faults.dup_every},
                 {"reorder_every", faults.reorder_every},
                 {"rate", static_cast<std::uint32_t>(venue.engine.market.interval_ms)},
                 {"disconnect", bench.disconnect_requested},
                 {"lapse", bench.lapse_until_ms},
                 {"reject", bench.reject_next},
                 {"partial", bench.partial_next},
                 {"fill_on_cancel", bench.fill_on_cancel_next},
                 {"unsolicited_cancel", bench.unsolicited_cancel_next},
                 {"replace_reject", bench.replace_reject_next}}};
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
    return "orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
           "unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=" +
           std::string(logged_in ? "1" : "0") +
           " replays=0 replayed=0 next_seq=2 kavo_me faults: sent 1 dropped 0 duplicated 0 reordered 0" +
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

// The control port's line: each command sets what it names and nothing else, and is answered word for word.
#include <algorithm>
#include <array>
#include <sstream>
#include <string>

#include "app/control_port.h"
#include "harness/harness.h"
#include "harness/input.h"
#include "harness/literal_texts.h"
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

struct Line {
    std::string_view text;  // as it is echoed
    std::string_view word;
    std::string_view argument;
};

bool is_one_of(std::string_view characters, char c) {
    return characters.find(c) != std::string_view::npos;
}

// The first word of the text, which loses it.
std::string_view first_word(std::string_view& text) {
    constexpr std::string_view between_words = " \t\n\v\f\r";
    while (!text.empty() && is_one_of(between_words, text.front())) text.remove_prefix(1);
    std::size_t size = 0;
    while (size < text.size() && !is_one_of(between_words, text[size])) ++size;
    const std::string_view word = text.substr(0, size);
    text.remove_prefix(size);
    return word;
}

Line literal_line(std::string_view datagram) {
    Line line{datagram.substr(0, datagram.find('\0')), {}, {}};
    while (!line.text.empty() && is_one_of("\n\r ", line.text.back())) line.text.remove_suffix(1);
    std::string_view rest = line.text;
    line.word = first_word(rest);
    line.argument = first_word(rest);
    return line;
}

std::uint32_t count_or(std::uint32_t otherwise, std::string_view argument) {
    return static_cast<std::uint32_t>(leading_unsigned(argument).value_or(otherwise));
}

// What a command makes of its knob.
std::uint64_t value_after(const Line& line) {
    if (line.word == "pause" || line.word == "disconnect") return 1;
    if (line.word == "lapse") return test::Venue::start_ms + count_or(20'000, line.argument);
    if (line.word != "rate") return count_or(line.word.ends_with("_every") ? 0 : 1, line.argument);
    const std::uint32_t ms = count_or(40, line.argument);
    return ms == 0 ? 40 : ms;
}

// False for a word that is no command.
bool carry_out(const Line& line, Knobs& knobs, std::string& marks) {
    if (line.word == "resume") {
        knobs[0].value = 0;
        return true;
    }
    if (line.word == "mark") {
        marks.append("{\"mark\":\"").append(line.argument).append("\",\"seq\":1}\n");
        return true;
    }
    const auto knob = std::ranges::find(knobs, line.word, &Knob::word);
    if (knob == knobs.end()) return line.word == "stats" || line.word == "stop";
    knob->value = value_after(line);
    return true;
}

std::string literal_reply(const Line& line, bool known, bool logged_in) {
    if (line.word == "stop") return "ok stopping";
    if (!known) return "err unknown command '" + std::string(line.word) + "'\n";
    if (line.word != "stats") return "ok " + std::string(line.text) + "\n";
    return "ok orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
           "unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=" +
           std::string(logged_in ? "1" : "0") +
           " replays=0 replayed=0 next_seq=2 kavo_me faults: sent 1 dropped 0 duplicated 0 reordered 0" +
           (logged_in ? " session=up\n" : " session=down\n");
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
    const Line line = literal_line(datagram);
    const bool known = carry_out(line, knobs, marks);
    require(scene.port.handle(datagram) == literal_reply(line, known, logged_in),
            "a command is answered word for word");
    require(scene.knobs() == knobs, "a command changes what it names and nothing else");
    require(scene.marks == marks, "a mark is written with its label as received");
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::command);
}

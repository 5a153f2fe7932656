// kavo.jsonl: what kavo itself did and saw during a run, one JSON object a line, written at once. "t" is the wall clock
// in nanoseconds, "ev" the event; what else a line holds depends on the event:
//
//   ready        ms              the venue listens, and is the one that was started
//   control      word, reply     a command to the control port, by kavo
//   relay        user, what      a fault of the relay was set: what, as in a script
//   relay_did    user, conversation, what, direction, bytes
//                                and did something: held, released, delayed, slowed, split, swallowed, half, cut,
//                                reset, abandoned. direction is up (from the client), down or both; bytes is how many
//                                it was done to; a cut and a reset lose them. delayed, slowed and split are noted when
//                                nothing waits any more, held when something begins to wait
//   script       line, text      a step of the script was carried out
//   late         ms              the machine let kavo wait so much longer than it asked for
//   kernel_drop  port, socket, drops     the kernel threw datagrams of the feed away: "kavo"'s own copy, or "client"'s
//   stranger     port            a datagram came to the feed's group and port that the venue had not sent, from this
//   port feed_socket  socket, open, ms        a socket of the feed other than kavo's own is there, or is gone; ms is
//   how long
//                                before that kavo had looked. socket is its inode, which tells it from others
//   command      pid, words      the user's command was started
//   command_end  status, signal  and has ended; timed_out is true when kavo had to end it
//   script_left  line, text      the first step of the script that was not carried out in time
//   venue_end    status, signal  the venue has ended; stopped is true when kavo had asked it to
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kavo::companion {

class RunLog {
public:
    // Throws Problem when the file cannot be opened.
    explicit RunLog(const std::filesystem::path& file);

    using Value = std::variant<std::int64_t, bool, std::string_view, std::vector<std::string>>;
    void write(std::uint64_t t_ns, std::string_view event,
               std::initializer_list<std::pair<std::string_view, Value>> values = {});
    // False once something could not be written: the disk is full, say.
    bool whole() const { return static_cast<bool>(out_); }

private:
    std::ofstream out_;
};

}  // namespace kavo::companion

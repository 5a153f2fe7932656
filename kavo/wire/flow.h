// One direction of a connection through the relay: what one side has said and the other has not been given yet. It
// decides when which bytes may go on, by the faults of the user, and knows nothing of sockets. Time is an argument.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "common/bytes.h"
#include "kavo/wire/relay_faults.h"

namespace kavo::companion {

class Flow {
public:
    using Time = std::chrono::steady_clock::time_point;

    // Called with each thing that a fault did; the words are those of relay_did in run_log.h.
    std::function<void(std::string_view what, std::size_t bytes)> did;

    // Whose faults this direction suffers from now on; what it holds already goes by them too, but for the packets of
    // which something has been taken: these are neither swallowed nor halved. Lent; `swallow` and `half` are used up.
    void suffer(DirectionFaults& faults) { faults_ = &faults; }

    void take(Time now, ByteView bytes);
    // How the side that speaks has ended, or, as `cut`, how the relay ends the connection behind half a packet.
    enum class End { none, finish, reset, cut };
    void end(Time now, End how);

    // What may be handed over now, at most; lent until the flow is touched. Empty when there is nothing, or not yet.
    ByteView ready(Time now);
    void passed(Time now, std::size_t count);
    // The end, once everything before it has been handed over and it is due itself.
    End end_ready(Time now);
    // When to look again at the latest, though nothing else happens.
    std::optional<Time> next_look() const;
    // True when bytes go on one piece at a time, with a turn of the loop between them.
    bool in_pieces() const { return faults_ != nullptr && faults_->piece != 0; }

    // Bytes that wait.
    std::size_t size() const { return bytes_.size() - passed_; }
    void forget_everything();

private:
    struct Arrival {
        Time at;
        std::size_t bytes = 0;  // that came then and still wait
    };
    enum class Fate { passed, swallowed, halved };
    // Where in its packet the next byte that comes lies, and what becomes of this packet.
    struct Framing {
        Bytes header;           // as far as it has come, of a packet that has just begun
        bool withheld = false;  // nothing of the header goes on until what becomes of the packet is decided
        Fate fate = Fate::passed;
        std::size_t size = 0;  // of the packet
        std::size_t left = 0;  // bytes of it to come
        std::size_t keep = 0;  // of these, how many go on
        bool lost = false;     // a length of zero: where packets begin is not known any more
    };

    void take_header_byte(Time now, std::uint8_t byte);
    void begin_packet(Time now);
    void take_of_packet(Time now, ByteView bytes);
    Fate fate_of(char type);
    void keep(Time now, ByteView bytes);
    std::size_t limit(Time now) const;
    bool held() const { return faults_ != nullptr && faults_->hold; }
    void note(std::string_view what, std::size_t bytes) const;
    void note_end_of_burst();

    DirectionFaults* faults_ = nullptr;
    Bytes bytes_;
    std::size_t passed_ = 0;  // of bytes_, to be erased now and then
    std::deque<Arrival> arrivals_;
    Framing framing_;
    End end_ = End::none;
    Time end_at_{};
    Time not_before_{};  // by the limit of bytes per second
    bool noted_held_ = false;
    std::size_t burst_delayed_ = 0;  // bytes since nothing waited that came on later, or in pieces, by a fault
    std::size_t burst_slowed_ = 0;
    std::size_t burst_split_ = 0;
};

}  // namespace kavo::companion

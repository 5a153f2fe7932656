// A receiver of the feed, with its own losses and its own bad habits: it takes datagrams, notices what is missing, asks
// for it again or starts anew from a snapshot, and keeps the books.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/received_book.h"
#include "client/requests.h"
#include "model/packets.h"
#include "stage/stage.h"

namespace kavo::simulation {

class Receiver {
public:
    //   steady  listens from the start, loses nothing by itself, and compares its book after every message
    Receiver(Stage& stage, std::uint64_t dice_seed, bool steady);

    // What it does between two passes of the venue.
    void act();
    // From here on it does nothing but catch up, properly.
    void settle_down();

    std::uint64_t next_sequence() const { return next_; }  // everything before it has been applied
    bool asleep() const { return asleep_; }

    struct Touch {
        WirePrice bid = 0;  // 0 when there is none
        WirePrice ask = 0;
    };
    Touch touch(std::uint32_t secid) const;

    // What this receiver holds against the venue; empty when there is nothing.
    const std::string& complaint() const { return complaint_; }

private:
    static constexpr std::uint64_t everything = ~std::uint64_t{0};

    void take_datagrams();
    void take_datagram(ByteView datagram);
    void take(std::uint64_t sequence, ByteView message);
    void apply(std::uint64_t sequence, const Bytes& message);
    bool misses_something() const { return last_known_ >= next_; }

    void recover();
    void change_pace();
    void call();
    void ask_properly();
    void ask_badly();
    void say(char packet_type, ByteView payload);
    void log_in(std::string_view session_protocol, std::string_view application_protocol, std::uint64_t sequence,
                std::uint8_t engines);
    void ask_for(std::uint64_t first, std::uint64_t last);
    void read_reply();
    void take_packet(char type, ByteView payload);
    void take_again(std::uint64_t sequence, ByteView message);
    void take_snapshot_packet(ByteView payload);
    void start_from_snapshot();
    void hang_up();
    void complain(const std::string& text);

    Stage& stage_;
    Dice dice_;
    bool steady_;
    bool settled_ = false;
    bool asleep_;
    bool wants_snapshot_ = false;
    std::size_t datagrams_taken_ = 0;

    client::ReceivedBook book_;
    std::uint64_t first_ = 1;  // everything before it came from a snapshot
    std::uint64_t next_ = 1;
    std::uint64_t last_known_ = 0;          // the highest number that the feed has shown
    std::vector<Bytes> applied_;            // from first_ on
    std::map<std::uint64_t, Bytes> early_;  // behind a gap
    unsigned patience_ = 0;                 // passes that a gap may still last

    Peer* peer_ = nullptr;  // of the present call
    bool slow_ = false;     // takes its reply in small pieces
    Bytes outgoing_;
    model::Cutter incoming_;
    std::uint64_t as_of_ = 0;
    std::vector<Bytes> snapshot_;
    bool sent_again_ = false;  // something, in the present call
    std::string complaint_;
};

}  // namespace kavo::simulation

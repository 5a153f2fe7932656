// A run as kavo records it, made in memory: a whole venue, clients, and everything that passes between them written
// into the folder of a run. A test may damage what was recorded before it is written.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "client/recovery.h"
#include "client/session.h"
#include "kavo/basics/folder.h"
#include "kavo/journal/journal.h"
#include "kavo/wire/recording.h"
#include "memory/memory_venue.h"
#include "support/process.h"

namespace kavo::test {

class RecordedRun {
public:
    using Ends = companion::Recording::Ends;

    // One thing that passed the wire. A connection's are written for both its halves.
    struct Event {
        enum class Kind { datagram, opened, said, closed };
        Kind kind = Kind::datagram;
        std::uint64_t t_ns = 0;
        Ends ends = {};
        bool by_client = false;
        bool reset = false;
        Bytes bytes = {};
    };

    // A client on order entry, which the test lets speak through its session.
    struct Client {
        MemoryConnection connection;
        client::Session session;
        std::uint16_t port;
        std::vector<std::string> heard = {};  // lines of transcript.h
        bool open = true;
    };

    // The market stands still unless the arguments say otherwise.
    explicit RecordedRun(const std::vector<std::string>& arguments = {"--symbols", "AAPL:190.00", "--interval-ms",
                                                                      "-1"},
                         const MemoryVenue::Setting& setting = {});

    // Connects, and logs in with the next step.
    Client& user(const std::string& name, std::uint64_t from = 1);
    void leave(Client& client);
    // What the service behind the feed answers to this, from login to goodbye.
    void recover(client::Recovery recovery);
    // Hands over what the clients say, lets five milliseconds pass, and records all of it.
    void step();
    void steps(int count) {
        while (count-- > 0) step();
    }
    // A note of kavo's own.
    void note(const std::string& json) { notes += json + "\n"; }

    // Ends the venue in good order, and keeps what there is to be recorded.
    void finish();
    // The same, and writes the folder.
    companion::Journal journal();
    void write();

    MemoryVenue venue;
    companion::BenchFacts facts;
    std::deque<Client> clients;
    std::vector<Event> events;
    std::string orders, books, venue_log, notes;
    companion::RunFolder folder;

private:
    void take_what_is_said();
    void record(Event event) { events.push_back(std::move(event)); }

    TemporaryFolder temporary_;
    std::uint16_t next_port_ = 40'001;
    bool finished_ = false;
};

// The first place of `old` in the text becomes `now`; throws when there is none.
void damage(std::string& text, const std::string& old, const std::string& now);
// Takes out the line, its end included, that the part stands in first; throws when there is none.
void drop_line(std::string& text, const std::string& part);

}  // namespace kavo::test

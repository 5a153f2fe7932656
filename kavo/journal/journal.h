// What happened in a run, from its folder: everything that was on the wire, cut into packets and in order, the truth of
// the venue, and what kavo noted. It judges nothing.
//
// All views are lent by the journal.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "kavo/basics/folder.h"

namespace kavo::companion {

// When, and where in wire.pcapng: `packet` counts from 1, as the usual tools show it.
struct Moment {
    std::uint64_t ns = 0;
    std::uint64_t packet = 0;
};

// One packet of the session protocol, whole, with its header.
struct WirePacket {
    Moment begun;  // its first byte passed the relay
    Moment at;     // its last byte did
    bool by_client = false;
    ByteView bytes;
};

enum class Service { orders, recovery };
enum class EndedBy { nobody, client, venue, relay };

// One TCP connection through the relay.
struct Conversation {
    std::size_t number = 0;  // from 1, in order of opening
    Service service = Service::orders;
    std::string user;  // of the first login; empty before
    Moment opened;
    Moment closed;  // as the client's side saw it
    EndedBy ended_by = EndedBy::nobody;
    bool reset = false;
    // In the order in which they passed: what the client sent and was given, and what the venue was given and sent.
    std::vector<WirePacket> with_client;
    std::vector<WirePacket> with_venue;
    // What follows the last whole packet: half a packet, or nothing.
    ByteView rest_of_client;  // on the client's side
    ByteView rest_to_client;
    ByteView rest_of_relay;  // on the venue's
    ByteView rest_of_venue;
    // Somebody has sent a packet of length 0. Nobody can say for certain what the other side has read behind it.
    bool reframed = false;
};

struct Datagram {
    Moment at;
    ByteView bytes;
};

// A line of orders.jsonl. Texts are as they stand in the file, so anything at all may be in them.
struct OrderLine {
    std::uint64_t t_ns = 0;
    std::string_view event;
    std::string_view client_order_id;
    std::uint64_t order_id = 0;
    std::string_view symbol;
    char side = ' ';
    std::uint32_t quantity = 0;
    double price = 0;  // six significant digits
    std::uint32_t executed = 0;
    std::uint32_t leaves = 0;
    std::uint32_t last_quantity = 0;
    std::string_view text;
    std::string_view original;
    std::size_t line = 0;    // in the file, from 1
    bool ambiguous = false;  // its texts can be read in two ways
};

// A line of kavo.jsonl; see run_log.h.
struct Note {
    std::uint64_t t_ns = 0;
    std::string event;
    std::string json;  // all of it
};

// A line that the venue said.
struct VenueLine {
    std::uint64_t t_ns = 0;
    std::string_view text;
};

// The best ten levels of a book as a line of books.jsonl tells them. Prices are ten-thousandths.
struct BookLevel {
    std::uint32_t price = 0;
    std::uint64_t quantity = 0;
    bool operator==(const BookLevel&) const = default;
};
struct BookLine {
    std::uint64_t sequence = 0;
    std::uint32_t product_id = 0;
    std::string_view symbol;
    std::vector<BookLevel> bids, asks;  // best first
    std::string_view mark;              // a mark instead of a book
    bool is_mark = false;
};

// Reads books.jsonl from its beginning, a line at a time, as fast as the disk gives it.
class BookTruthReader {
public:
    explicit BookTruthReader(std::string_view content) : left_(content) {}
    // False at the end, and at a line that is cut short or is none of the venue's: then broken() tells.
    bool next(BookLine& line);
    bool broken() const { return broken_; }
    std::size_t line() const { return line_; }

private:
    std::string_view left_;
    std::size_t line_ = 0;
    bool broken_ = false;
};

struct Journal {
    RunFolder folder;
    BenchFacts facts;
    std::deque<Conversation> conversations;
    std::vector<Datagram> feed;  // in the order of arrival
    std::vector<OrderLine> orders;
    std::string_view book_truth;  // all of books.jsonl, for a BookTruthReader
    std::vector<VenueLine> venue;
    std::vector<Note> notes;

    struct Storage;  // what the views are lent by
    std::shared_ptr<Storage> storage;
    // What could not be read, in words: a recording that is cut short, a truth file that is missing. A run in which
    // something is missing is never judged as if it were whole.
    std::vector<std::string> defects;
};

// Throws Problem when the folder is none of a run.
Journal read_journal(const std::filesystem::path& folder);

}  // namespace kavo::companion

#include "kavo/journal/journal.h"

#include "kavo/basics/problem.h"
#include "kavo/journal/conversations.h"
#include "kavo/journal/logs.h"
#include "kavo/journal/mapped_file.h"
#include "kavo/journal/order_truth.h"
#include "kavo/wire/capture.h"

namespace kavo::companion {

struct Journal::Storage {
    // Copies of many small pieces, each in one place for good.
    class Pieces {
    public:
        ByteView keep(ByteView bytes) {
            if (blocks_.empty() || blocks_.back().capacity() - blocks_.back().size() < bytes.size()) {
                blocks_.emplace_back().reserve(std::max(block_bytes, bytes.size()));
            }
            Bytes& block = blocks_.back();
            const std::size_t at = block.size();
            block.insert(block.end(), bytes.begin(), bytes.end());
            return ByteView(block).subspan(at);
        }

    private:
        static constexpr std::size_t block_bytes = 4 << 20;
        std::deque<Bytes> blocks_;
    };

    explicit Storage(const RunFolder& folder)
        : venue_log(folder.venue_log()), order_truth(folder.order_truth()), book_truth(folder.book_truth()) {}

    MappedFile venue_log;
    MappedFile order_truth;
    MappedFile book_truth;
    Pieces datagrams;
    std::deque<Bytes> streams;
};

namespace {

using Packet = Capture::Packet;

class Reader {
public:
    explicit Reader(Journal& journal) : journal_(journal), storage_(*journal.storage) {}

    void read() {
        read_logs();
        read_truth();
        read_wire();
    }

private:
    void defect(const std::string& file, const std::string& what) { journal_.defects.push_back(file + " " + what); }

    bool found(const MappedFile& file, const std::string& name) {
        if (!file.found()) defect(name, "cannot be read: it is missing, or may not be read");
        return file.found();
    }

    void read_logs() {
        std::size_t unread = 0;
        const auto count_unread = [&](const std::string& name) {
            if (unread != 0) defect(name, "has " + std::to_string(unread) + " line(s) that cannot be read");
        };
        if (found(storage_.venue_log, "venue.log")) {
            journal_.venue = read_venue_log(storage_.venue_log.content(), unread);
            count_unread("venue.log");
        }
        const MappedFile log(journal_.folder.log());
        if (!found(log, "kavo.jsonl")) return;
        journal_.notes = read_notes(log.content(), unread);
        count_unread("kavo.jsonl");
    }

    void read_truth() {
        if (found(storage_.order_truth, "orders.jsonl")) {
            OrderTruth truth = read_order_truth(storage_.order_truth.content(), journal_.facts.symbols);
            journal_.orders = std::move(truth.lines);
            if (truth.broken) defect("orders.jsonl", "ends at line " + std::to_string(truth.broken_line) + ": " + cut);
        }
        if (!found(storage_.book_truth, "books.jsonl")) return;
        journal_.book_truth = storage_.book_truth.content();
        if (!journal_.book_truth.empty() && journal_.book_truth.back() != '\n') defect("books.jsonl", cut);
    }

    void read_wire() {
        try {
            Capture capture(journal_.folder.wire());
            read_packets(capture);
        } catch (const Problem& problem) {
            defect("wire.pcapng", std::string("cannot be read: ") + problem.what());
        }
    }

    void read_packets(Capture& capture) {
        Conversations conversations(journal_.facts);
        std::size_t partial = 0;
        for (Packet packet; capture.next(packet);) {
            if (!packet.whole) ++partial;
            const Moment at{packet.t_ns, packet.number};
            if (packet.protocol == Capture::Protocol::tcp) {
                conversations.take(segment_of(packet, at));
            } else if (packet.destination.port == journal_.facts.feed_port && packet.whole) {
                journal_.feed.push_back({at, storage_.datagrams.keep(packet.payload)});
            }
        }
        std::size_t holes = 0;
        journal_.conversations = conversations.finish(storage_.streams, holes);
        if (capture.cut_short()) defect("wire.pcapng", cut);
        if (partial != 0) defect("wire.pcapng", "holds only a part of " + std::to_string(partial) + " packet(s)");
        if (holes != 0) defect("wire.pcapng", "lacks bytes of TCP at " + std::to_string(holes) + " place(s)");
    }

    static Segment segment_of(const Packet& packet, const Moment& at) {
        const auto has = [&packet](std::uint8_t flag) { return (packet.tcp_flags & flag) != 0; };
        return {.at = at,
                .from = packet.source.port,
                .to = packet.destination.port,
                .sequence = packet.tcp_sequence,
                .opens = has(Capture::tcp_syn) && !has(Capture::tcp_ack),
                .answers = has(Capture::tcp_syn) && has(Capture::tcp_ack),
                .closes = has(Capture::tcp_fin),
                .resets = has(Capture::tcp_rst),
                .bytes = packet.payload};
    }

    static constexpr const char* cut = "is cut short, or goes on with what is not of its kind";

    Journal& journal_;
    Journal::Storage& storage_;
};

}  // namespace

Journal read_journal(const std::filesystem::path& folder) {
    Journal journal;
    journal.folder.path = folder;
    journal.facts = read_facts(journal.folder.bench());
    journal.storage = std::make_shared<Journal::Storage>(journal.folder);
    Reader(journal).read();
    return journal;
}

}  // namespace kavo::companion

#include "kavo/screen/feed_lines.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "client/transcript.h"
#include "common/text.h"
#include "kavo/screen/json_line.h"
#include "kavo/screen/wire_json.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t levels_on_a_line = 3;
constexpr std::size_t levels_in_json = 10;  // as many as the truth of the books has

template <typename Level>
Json side(Level level, Level end) {
    Json levels = Json::array();
    for (; level != end && levels.size() < levels_in_json; ++level) {
        levels.push_back({price_number(level->first), level->second});
    }
    return levels;
}

}  // namespace

void FeedLines::message(std::uint64_t sequence, ByteView message, const std::string& note) {
    open_ = sequence >= window_.from && !done();
    if (!open_) return;
    ++shown_;
    if (json_) {
        Json fields = feed_json(message);
        const std::string event = fields.at("ev");
        fields.erase("ev");
        Json all{{"seq", sequence}};
        all.update(fields);
        if (!note.empty()) all["note"] = note;
        return print(event.c_str(), all);
    }
    const std::string text = client::dom_text(message);
    std::printf("%llu %s%s\n", printable(sequence), text.c_str(), note.empty() ? "" : (" (" + note + ")").c_str());
}

void FeedLines::bare(const mach::Header& header) {
    if (done()) return;
    switch (header.type) {
        case mach::PacketType::start:
            if (json_) return print("start", {{"session", header.session}});
            std::printf("start of session %u\n", header.session);
            break;
        case mach::PacketType::heartbeat:
            if (json_) return print("heartbeat", {{"last", header.sequence}});
            std::printf("heartbeat, last message %llu\n", printable(header.sequence));
            break;
        case mach::PacketType::application_data: break;
    }
}

void FeedLines::book(std::uint64_t sequence, std::uint32_t secid, const client::ReceivedBook& books) {
    if (!open_) return;
    if (!json_) {
        std::printf("    %s\n", books.text(secid, levels_on_a_line).c_str());
        return;
    }
    const auto& book = books.book(secid);
    print("book", {{"seq", sequence},
                   {"secid", secid},
                   {"symbol", book.symbol},
                   {"bids", side(book.bids.rbegin(), book.bids.rend())},
                   {"asks", side(book.asks.begin(), book.asks.end())}});
}

void FeedLines::gap(std::uint64_t first, std::uint64_t last) {
    if (last < window_.from) return;
    const std::string more = first == last ? " is missing" : ".." + std::to_string(last) + " are missing";
    remark("gap", "gap: " + std::to_string(first) + more, {{"first", first}, {"last", last}});
}

void FeedLines::refresh(std::uint64_t as_of) {
    remark("refresh", "refresh: the books as of message " + std::to_string(as_of), {{"as_of", as_of}});
}

void FeedLines::no_books(const std::string& reason) {
    remark("no_books", "no books: " + reason, {{"reason", reason}});
}

void FeedLines::fallen_back() {
    remark("restart", "the numbers have fallen back: the simulator has begun again", Json::object());
}

void FeedLines::silence() {
    const std::string text =
        "silence: a simulator that runs here is heard every second. Does it have the same --mcast, --port "
        "and --iface? Where there is no multicast, give --mcast 127.0.0.1 to both";
    remark("silence", text, {{"text", text}});
}

void FeedLines::remark(const char* event, const std::string& text, const Json& fields) {
    open_ = !done();
    if (!open_) return;
    if (json_) return print(event, fields);
    std::printf("--- %s\n", text.c_str());
}

void FeedLines::print(const char* event, const Json& fields) const {
    std::puts(json_line(t_ns_, event, fields).c_str());
}

}  // namespace kavo::companion

// Listens to the feed and prints every message in plain words; with --book, the changed book after each of them too.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/feed_reader.h"
#include "support/received_book.h"
#include "support/transcript.h"

namespace {

using kavo::test::FeedReader;

constexpr std::chrono::milliseconds for_ever{24 * 60 * 60 * 1000};
constexpr std::size_t shown_levels = 3;

struct Arguments {
    std::string group = "233.54.28.111";
    std::uint16_t port = 25377;
    std::string iface = "127.0.0.1";
    bool book = false;
};

[[noreturn]] void usage() {
    std::fprintf(stderr, "usage: feed_dump [--mcast GROUP] [--port PORT] [--iface ADDRESS] [--book]\n");
    std::exit(2);
}

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string_view flag = argv[i];
        if (flag == "--book") {
            arguments.book = true;
            continue;
        }
        if (++i == argc) usage();
        if (flag == "--mcast") {
            arguments.group = argv[i];
        } else if (flag == "--port") {
            arguments.port = static_cast<std::uint16_t>(std::atoi(argv[i]));
        } else if (flag == "--iface") {
            arguments.iface = argv[i];
        } else {
            usage();
        }
    }
    return arguments;
}

void print(const FeedReader::Packet& packet) {
    const unsigned long long sequence = packet.header.sequence;
    switch (packet.header.type) {
        case kavo::mach::PacketType::start: std::printf("start of session %u\n", packet.header.session); break;
        case kavo::mach::PacketType::heartbeat: std::printf("heartbeat, last message %llu\n", sequence); break;
        default: std::printf("%llu %s\n", sequence, kavo::test::dom_text(packet.message).c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parse(argc, argv);
    FeedReader feed(arguments.group, arguments.port, arguments.iface);
    kavo::test::ReceivedBook books;
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    while (const auto packet = feed.next_packet(for_ever)) {
        print(*packet);
        const std::uint32_t changed = books.apply(packet->message);
        if (arguments.book && changed != 0) std::printf("    %s\n", books.text(changed, shown_levels).c_str());
    }
}

#include "lines.h"

#include <cstdio>

#include "client/transcript.h"
#include "common/text.h"

namespace kavo::feed_dump {

void print_remark(const std::string& text) {
    std::printf("--- %s\n", text.c_str());
}

void print_gap(std::uint64_t first, std::uint64_t last) {
    const bool one = first == last;
    print_remark("gap: " + std::to_string(first) +
                 (one ? " is missing" : ".." + std::to_string(last) + " are missing"));
}

void print_fallen_back() {
    print_remark("the numbers have fallen back: the simulator has begun again");
}

void print_message(std::uint64_t sequence, ByteView message, const std::string& note) {
    const std::string text = client::dom_text(message);
    std::printf("%llu %s%s\n", printable(sequence), text.c_str(), note.empty() ? "" : (" (" + note + ")").c_str());
}

void print_bare(const mach::Header& header) {
    switch (header.type) {
        case mach::PacketType::start: std::printf("start of session %u\n", header.session); break;
        case mach::PacketType::heartbeat:
            std::printf("heartbeat, last message %llu\n", printable(header.sequence));
            break;
        case mach::PacketType::application_data: break;
    }
}

}  // namespace kavo::feed_dump

// The lines that feed_dump prints: packets of the feed in plain words, and remarks that stand out from them.
#pragma once

#include <cstdint>
#include <string>

#include "common/bytes.h"
#include "feed/mach.h"

namespace kavo::feed_dump {

void print_remark(const std::string& text);
void print_gap(std::uint64_t first, std::uint64_t last);
void print_fallen_back();

//   note  how the message came, or nothing
void print_message(std::uint64_t sequence, ByteView message, const std::string& note = {});
// A start or a heartbeat; nothing for a packet that carries a message.
void print_bare(const mach::Header& header);

}  // namespace kavo::feed_dump

#include "kavo/wire/recording.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "kavo/basics/problem.h"
#include "kavo/wire/capture.h"
#include "kavo/wire/ip.h"

namespace kavo::companion {

namespace {

constexpr std::uint32_t localhost = 0x7f000001;
constexpr std::size_t ip_packet_bytes = 65'535;
constexpr std::size_t most_tcp_bytes = ip_packet_bytes - ip_header_bytes - tcp_header_bytes;
constexpr std::uint16_t window = 65'535;
// What may be unacknowledged before an acknowledgement of its own is written: less than the window holds.
constexpr std::uint32_t unacknowledged_limit = 32'768;
constexpr std::size_t buffer_bytes = 256 * 1024;

// A packet's header, in the byte order of networks.
class Header {
public:
    Header& u8(unsigned value) { return put(value, 1); }
    Header& u16(std::size_t value) { return put(value, 2); }
    Header& u32(std::uint64_t value) { return put(value, 4); }

    std::size_t size() const { return size_; }
    ByteView view() const { return {bytes_.data(), size_}; }
    void set_u16(std::size_t at, std::uint16_t value) {
        bytes_[at] = static_cast<std::uint8_t>(value >> 8);
        bytes_[at + 1] = static_cast<std::uint8_t>(value);
    }

private:
    Header& put(std::uint64_t value, std::size_t bytes) {
        while (bytes-- > 0) bytes_[size_++] = static_cast<std::uint8_t>(value >> 8 * bytes);
        return *this;
    }
    std::array<std::uint8_t, 64> bytes_{};
    std::size_t size_ = 0;
};

// The sum of all 16-bit words, folded later. Four bytes at a time, in this machine's order: it comes out as that of
// the words themselves, with its two bytes the way this machine has them.
std::uint64_t sum_of(ByteView bytes) {
    std::uint64_t sum = 0;
    std::size_t at = 0;
    for (; at + 4 <= bytes.size(); at += 4) {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes.data() + at, 4);
        sum += word;
    }
    std::uint32_t rest = 0;
    if (at < bytes.size()) std::memcpy(&rest, bytes.data() + at, bytes.size() - at);
    return sum + rest;
}

std::uint16_t checksum(std::uint64_t sum) {
    while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
    const auto folded = static_cast<std::uint16_t>(~sum);
    if constexpr (std::endian::native == std::endian::big) return folded;
    return static_cast<std::uint16_t>(folded << 8 | folded >> 8);
}

void add_ip(Header& header, std::uint8_t protocol, std::uint32_t destination, std::size_t segment_size) {
    constexpr unsigned dont_fragment = 0x4000;
    header.u8(0x45).u8(0).u16(ip_header_bytes + segment_size);
    header.u16(0).u16(dont_fragment).u8(64).u8(protocol).u16(0).u32(localhost).u32(destination);
    header.set_u16(10, checksum(sum_of(header.view())));
}

// Over the segment, and what it borrows from the header in front of it: both addresses, the protocol, its length.
std::uint16_t segment_checksum(const Header& header, std::uint8_t protocol, ByteView bytes) {
    const ByteView segment = header.view().subspan(ip_header_bytes);
    Header borrowed;
    borrowed.u8(0).u8(protocol).u16(segment.size() + bytes.size());
    return checksum(sum_of(header.view().subspan(12, 8)) + sum_of(borrowed.view()) + sum_of(segment) + sum_of(bytes));
}

// Blocks of the file are in this machine's order, which the first one tells.
template <typename T>
void append(Bytes& block, T value) {
    const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value);
    block.insert(block.end(), bytes.begin(), bytes.end());
}

void pad(Bytes& block) {
    while (block.size() % 4 != 0) block.push_back(0);
}

void append_option(Bytes& block, std::uint16_t code, std::string_view value) {
    append(block, code);
    append(block, static_cast<std::uint16_t>(value.size()));
    block.insert(block.end(), value.begin(), value.end());
    pad(block);
}

void append_block(Bytes& file, std::uint32_t type, const Bytes& body) {
    const auto length = static_cast<std::uint32_t>(body.size() + 12);
    append(file, type);
    append(file, length);
    file.insert(file.end(), body.begin(), body.end());
    append(file, length);
}

// The two blocks with which a file begins: who wrote it, and what kind of packets there are.
Bytes beginning() {
    constexpr std::uint16_t link_type_raw = 101;  // plain IP
    Bytes section;
    append(section, std::uint32_t{0x1a2b3c4d});  // in which order the bytes are
    append(section, std::uint16_t{1});
    append(section, std::uint16_t{0});
    append(section, ~std::uint64_t{0});  // its length: until the end
    append_option(section, 4, std::string_view("kavo " KAVO_VERSION));
    append_option(section, 0, "");
    Bytes interface;
    append(interface, link_type_raw);
    append(interface, std::uint16_t{0});
    append(interface, std::uint32_t{0});  // packets of any size
    append_option(interface, 2, "kavo");
    append_option(interface, 9, std::string_view("\x09", 1));  // times in 10^-9 s
    append_option(interface, 0, "");
    Bytes file;
    append_block(file, 0x0a0d0d0a, section);
    append_block(file, 1, interface);
    return file;
}

}  // namespace

Recording::Recording(const std::filesystem::path& file) : file_(std::fopen(file.c_str(), "wbe"), std::fclose) {
    if (!file_) {
        throw Problem(Status::bench, "cannot write " + file.string() + " (" + std::strerror(errno) +
                                         "): choose a place where you may write");
    }
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
    buffer_ = beginning();
}

Recording::~Recording() {
    flush();
}

void Recording::datagram(std::uint64_t t_ns, std::uint32_t destination, std::uint16_t port, ByteView bytes) {
    Header header;
    const std::size_t size = udp_header_bytes + bytes.size();
    add_ip(header, ip_protocol_udp, destination, size);
    header.u16(port).u16(port).u16(size).u16(0);
    const std::uint16_t sum = segment_checksum(header, ip_protocol_udp, bytes);
    header.set_u16(ip_header_bytes + 6, sum == 0 ? 0xffff : sum);  // 0 would say that there is none
    packet(t_ns, header.view(), bytes);
}

// The first numbers of a conversation are unlike those of the one before it on the same ports, or it would look like
// more of the same.
void Recording::opened(std::uint64_t t_ns, Ends ends) {
    const std::uint32_t first = ++opened_ * 0x9e3779b1U;
    conversations_[ends] = {{.next = first, .heard = 0}, {.next = first ^ 0x5bd1e995U, .heard = 0}};
    tcp(t_ns, ends, true, Capture::tcp_syn, {});
    tcp(t_ns, ends, false, Capture::tcp_syn | Capture::tcp_ack, {});
    tcp(t_ns, ends, true, Capture::tcp_ack, {});
}

void Recording::said(std::uint64_t t_ns, Ends ends, bool by_client, ByteView bytes) {
    Conversation& conversation = conversations_.at(ends);
    while (!bytes.empty()) {
        const ByteView chunk = bytes.first(std::min(bytes.size(), most_tcp_bytes));
        bytes = bytes.subspan(chunk.size());
        tcp(t_ns, ends, by_client, Capture::tcp_psh | Capture::tcp_ack, chunk);
        const std::uint32_t open = conversation.speaker(by_client).next - conversation.speaker(!by_client).heard;
        if (open > unacknowledged_limit) tcp(t_ns, ends, !by_client, Capture::tcp_ack, {});
    }
}

void Recording::closed(std::uint64_t t_ns, Ends ends, bool by_client, bool reset) {
    Conversation& conversation = conversations_.at(ends);
    if (reset) {
        tcp(t_ns, ends, by_client, Capture::tcp_rst | Capture::tcp_ack, {});
        conversations_.erase(ends);
        return;
    }
    tcp(t_ns, ends, by_client, Capture::tcp_fin | Capture::tcp_ack, {});
    tcp(t_ns, ends, !by_client, Capture::tcp_ack, {});
    conversation.speaker(by_client).closed = true;
    if (conversation.speaker(!by_client).closed) conversations_.erase(ends);
}

void Recording::tcp(std::uint64_t t_ns, Ends ends, bool by_client, std::uint8_t flags, ByteView bytes) {
    Conversation& conversation = conversations_.at(ends);
    Speaker& speaker = conversation.speaker(by_client);
    if ((flags & Capture::tcp_ack) != 0) speaker.heard = conversation.speaker(!by_client).next;
    Header header;
    add_ip(header, ip_protocol_tcp, localhost, tcp_header_bytes + bytes.size());
    header.u16(by_client ? ends.client : ends.server).u16(by_client ? ends.server : ends.client);
    header.u32(speaker.next).u32(speaker.heard).u8(tcp_header_bytes / 4 << 4).u8(flags).u16(window).u32(0);
    header.set_u16(ip_header_bytes + 16, segment_checksum(header, ip_protocol_tcp, bytes));
    packet(t_ns, header.view(), bytes);
    speaker.next += static_cast<std::uint32_t>(bytes.size());
    if ((flags & (Capture::tcp_syn | Capture::tcp_fin)) != 0) ++speaker.next;  // each counts as a byte
}

void Recording::packet(std::uint64_t t_ns, ByteView header, ByteView bytes) {
    const auto size = static_cast<std::uint32_t>(header.size() + bytes.size());
    const std::uint32_t padding = (4 - size % 4) % 4;
    const std::uint32_t block = 32 + size + padding;
    const std::array<std::uint32_t, 7> before{
        6, block, 0, static_cast<std::uint32_t>(t_ns >> 32), static_cast<std::uint32_t>(t_ns), size, size};
    if (buffer_.size() + block > buffer_bytes) flush();
    const auto fields = std::as_bytes(std::span(before));
    const auto* first = reinterpret_cast<const std::uint8_t*>(fields.data());
    buffer_.insert(buffer_.end(), first, first + fields.size());
    buffer_.insert(buffer_.end(), header.begin(), header.end());
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    buffer_.insert(buffer_.end(), padding, 0);
    append(buffer_, block);
}

bool Recording::flush() {
    if (whole_ && !buffer_.empty()) {
        whole_ = std::fwrite(buffer_.data(), 1, buffer_.size(), file_.get()) == buffer_.size();
    }
    buffer_.clear();
    return whole_;
}

}  // namespace kavo::companion

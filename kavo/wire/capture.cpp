#include "kavo/wire/capture.h"

#include <pcap/pcap.h>

#include <optional>

#include "kavo/basics/problem.h"
#include "kavo/wire/ip.h"

namespace kavo::companion {

namespace {

constexpr unsigned ip_ethertype = 0x0800;
constexpr unsigned vlan_ethertype = 0x8100;

// What networks send comes with its high byte first, unlike all that the venue says.
std::uint32_t network_number(ByteView bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8 | bytes[at + i];
    return value;
}

std::uint16_t network_port(ByteView bytes, std::size_t at) {
    return static_cast<std::uint16_t>(network_number(bytes, at, 2));
}

// The bytes behind a link header of this size whose ethertype stands there; nothing unless they are IPv4.
std::optional<ByteView> behind(ByteView frame, std::size_t ethertype_at, std::size_t header) {
    while (frame.size() >= header && network_number(frame, ethertype_at, 2) == vlan_ethertype) {
        ethertype_at += 4;
        header += 4;
    }
    if (frame.size() < header || network_number(frame, ethertype_at, 2) != ip_ethertype) return std::nullopt;
    return frame.subspan(header);
}

bool can_read(int link_type) {
    return link_type == DLT_RAW || link_type == DLT_IPV4 || link_type == DLT_EN10MB || link_type == DLT_LINUX_SLL ||
           link_type == DLT_LINUX_SLL2;
}

std::optional<ByteView> ip_packet(int link_type, ByteView frame) {
    if (link_type == DLT_EN10MB) return behind(frame, 12, 14);
    if (link_type == DLT_LINUX_SLL) return behind(frame, 14, 16);
    if (link_type == DLT_LINUX_SLL2) return behind(frame, 0, 20);
    return frame;
}

bool read_udp(ByteView segment, Capture::Packet& packet) {
    if (segment.size() < udp_header_bytes) return false;
    const std::size_t length = network_number(segment, 4, 2);
    if (length < udp_header_bytes) return false;
    packet.protocol = Capture::Protocol::udp;
    packet.whole = packet.whole && length <= segment.size();
    packet.payload = segment.first(std::min(length, segment.size())).subspan(udp_header_bytes);
    return true;
}

bool read_tcp(ByteView segment, Capture::Packet& packet) {
    if (segment.size() < tcp_header_bytes) return false;
    const std::size_t header = std::size_t{segment[12]} / 16 * 4;
    if (header < tcp_header_bytes || header > segment.size()) return false;
    packet.protocol = Capture::Protocol::tcp;
    packet.tcp_sequence = network_number(segment, 4, 4);
    packet.tcp_flags = segment[13];
    packet.payload = segment.subspan(header);
    return true;
}

// False for what is no whole datagram and no segment.
bool read_ip(ByteView ip, Capture::Packet& packet) {
    if (ip.size() < ip_header_bytes || ip[0] / 16 != 4) return false;
    const std::size_t header = std::size_t{ip[0]} % 16 * 4;
    std::size_t length = network_number(ip, 2, 2);
    if (length == 0) length = ip.size();  // left to the network card, by some that sent it
    const bool fragment = (network_number(ip, 6, 2) & 0x3fff) != 0;
    if (fragment || header < ip_header_bytes || header > length || header + 4 > ip.size()) return false;
    packet.whole = length <= ip.size();
    const ByteView segment = ip.first(std::min(length, ip.size())).subspan(header);
    if (segment.size() < 4) return false;
    packet.source = {network_number(ip, 12, 4), network_port(segment, 0)};
    packet.destination = {network_number(ip, 16, 4), network_port(segment, 2)};
    if (ip[9] == ip_protocol_udp) return read_udp(segment, packet);
    return ip[9] == ip_protocol_tcp && read_tcp(segment, packet);
}

}  // namespace

Capture::Capture(const std::filesystem::path& file) : file_(nullptr, pcap_close) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    file_.reset(pcap_open_offline_with_tstamp_precision(file.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason));
    if (!file_)
        throw Problem(Status::usage, "cannot read a capture from " + file.string() + " (" + reason +
                                         "): name a pcap or pcapng file, or the folder of a run");
    if (!can_read(pcap_datalink(file_.get()))) {
        throw Problem(Status::usage, "cannot read the packets in " + file.string() +
                                         ": capture on an Ethernet interface, on lo, or on any");
    }
}

bool Capture::next(Packet& packet) {
    pcap_pkthdr* about = nullptr;
    const std::uint8_t* bytes = nullptr;
    int read = 0;
    while ((read = pcap_next_ex(file_.get(), &about, &bytes)) == 1) {
        packet = {};
        packet.number = ++read_;
        packet.t_ns = static_cast<std::uint64_t>(about->ts.tv_sec) * 1'000'000'000 +
                      static_cast<std::uint64_t>(about->ts.tv_usec);  // nanoseconds, as asked for
        const auto ip = ip_packet(pcap_datalink(file_.get()), ByteView(bytes, about->caplen));
        if (ip && read_ip(*ip, packet)) return true;
    }
    cut_short_ = cut_short_ || read == PCAP_ERROR;
    return false;
}

}  // namespace kavo::companion

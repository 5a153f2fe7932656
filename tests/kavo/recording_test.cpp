#include "kavo/wire/recording.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "client/dial.h"
#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/wire/capture.h"
#include "kavo/wire/feed_tap.h"
#include "kavo/wire/udp_sockets.h"
#include "support/process.h"

namespace kavo::companion {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t t0 = 1'700'000'000'123'456'789;
constexpr std::uint32_t group = 0xe9361c6f;  // 233.54.28.111

// The sum of all 16-bit words of a whole header or segment, checksum included, is all ones when that is right.
std::uint16_t sum_of_words(const Bytes& bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) sum += i % 2 == 0 ? bytes[i] * 256U : bytes[i];
    while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<std::uint16_t>(sum);
}

struct RawPacket {
    std::uint64_t t_ns = 0;
    Bytes bytes;
};

// The packets of a file as libpcap reads them, each with right checksums.
std::vector<RawPacket> read_back(const std::string& file) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_t* opened = pcap_open_offline_with_tstamp_precision(file.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason);
    EXPECT_NE(opened, nullptr) << reason;
    if (opened == nullptr) return {};
    EXPECT_EQ(pcap_datalink(opened), DLT_RAW);
    std::vector<RawPacket> packets;
    pcap_pkthdr* about = nullptr;
    const std::uint8_t* data = nullptr;
    int read = 0;
    while ((read = pcap_next_ex(opened, &about, &data)) == 1) {
        EXPECT_EQ(about->caplen, about->len);
        packets.push_back({static_cast<std::uint64_t>(about->ts.tv_sec) * 1'000'000'000 +
                               static_cast<std::uint64_t>(about->ts.tv_usec),
                           Bytes(data, data + about->caplen)});
        const Bytes& ip = packets.back().bytes;
        EXPECT_EQ(ip[2] * 256U + ip[3], ip.size());
        EXPECT_EQ(sum_of_words(Bytes(ip.begin(), ip.begin() + 20)), 0xffff);
        Bytes segment(ip.begin() + 12, ip.end());  // from the two addresses on, then the rest of the pseudo header
        const std::size_t size = ip.size() - 20;
        segment.insert(segment.begin(),
                       {0, ip[9], static_cast<std::uint8_t>(size / 256), static_cast<std::uint8_t>(size % 256)});
        EXPECT_EQ(sum_of_words(segment), 0xffff);
    }
    EXPECT_EQ(read, PCAP_ERROR_BREAK) << pcap_geterr(opened);
    pcap_close(opened);
    return packets;
}

// TCP packets as lines: "c S 0/0 0", who sends, flags, numbers counted from the first of each side, bytes.
std::vector<std::string> tcp_lines(const std::vector<RawPacket>& packets, std::uint16_t client_port) {
    std::vector<std::string> lines;
    std::uint32_t first[2] = {0, 0};
    for (const RawPacket& packet : packets) {
        const auto u32 = [&](std::size_t at) {
            return static_cast<std::uint32_t>(packet.bytes[at] << 24 | packet.bytes[at + 1] << 16 |
                                              packet.bytes[at + 2] << 8 | packet.bytes[at + 3]);
        };
        const int by_server = packet.bytes[20] * 256 + packet.bytes[21] == client_port ? 0 : 1;
        const std::uint8_t flags = packet.bytes[33];
        if ((flags & 0x02) != 0) first[by_server] = u32(24);
        std::string line = by_server ? "s " : "c ";
        for (const auto& [bit, letter] : {std::pair{0x02, 'S'}, {0x01, 'F'}, {0x04, 'R'}, {0x08, 'P'}, {0x10, 'A'}}) {
            if ((flags & bit) != 0) line += letter;
        }
        const std::uint32_t acknowledged = (flags & 0x10) != 0 ? u32(28) - first[1 - by_server] : 0;
        line += " " + std::to_string(u32(24) - first[by_server]) + "/" + std::to_string(acknowledged);
        lines.push_back(line + " " + std::to_string(packet.bytes.size() - 40));
    }
    return lines;
}

class Recorded : public testing::Test {
protected:
    std::vector<RawPacket> packets() {
        EXPECT_TRUE(recording.flush());
        return read_back(file);
    }
    kavo::test::TemporaryFolder folder;
    std::string file = folder.path("wire.pcapng");
    Recording recording{file};
};

TEST_F(Recorded, ADatagramIsWrittenWithItsTimeToTheNanosecond) {
    recording.datagram(t0, group, 25377, as_bytes("odd"));
    const auto read = packets();
    ASSERT_EQ(read.size(), 1U);
    EXPECT_EQ(read[0].t_ns, t0);
    const Bytes& ip = read[0].bytes;
    EXPECT_EQ(Bytes(ip.begin() + 12, ip.end()), (Bytes{127, 0, 0, 1, 233, 54, 28, 111,  // from, to
                                                       0x63, 0x21, 0x63, 0x21, 0, 11,   // ports, length
                                                       ip[26], ip[27], 'o', 'd', 'd'}));
    EXPECT_EQ(ip[9], 17);
}

TEST_F(Recorded, ADatagramMayBeEmptyOrAsLongAsTheyGet) {
    recording.datagram(t0, group, 25377, {});
    recording.datagram(t0, group, 25377, Bytes(65'507, 0xff));
    const auto read = packets();
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[0].bytes.size(), 28U);
    EXPECT_EQ(read[1].bytes.size(), 65'535U);
}

TEST_F(Recorded, AConversationHasItsHandshakeItsNumbersAndItsEnd) {
    const Recording::Ends ends{40'000, 28'700};
    recording.opened(t0, ends);
    recording.said(t0 + 1, ends, true, as_bytes("hello"));
    recording.said(t0 + 2, ends, false, as_bytes("hi"));
    recording.closed(t0 + 3, ends, true, false);
    recording.said(t0 + 4, ends, false, as_bytes("bye"));
    recording.closed(t0 + 5, ends, false, false);
    const auto read = packets();
    EXPECT_EQ(tcp_lines(read, 40'000),
              (std::vector<std::string>{"c S 0/0 0", "s SA 0/1 0", "c A 1/1 0", "c PA 1/1 5", "s PA 1/6 2",
                                        "c FA 6/3 0", "s A 3/7 0", "s PA 3/7 3", "s FA 6/7 0", "c A 7/7 0"}));
    EXPECT_EQ(read[2].t_ns, t0);
    EXPECT_EQ(read[9].t_ns, t0 + 5);
}

TEST_F(Recorded, AResetEndsAConversationAndItsPortsMayBeUsedAgain) {
    const Recording::Ends ends{40'000, 28'700};
    recording.opened(t0, ends);
    recording.closed(t0, ends, false, true);
    recording.opened(t0, ends);
    const auto read = packets();
    const auto lines = tcp_lines(read, 40'000);
    EXPECT_EQ(lines, (std::vector<std::string>{"c S 0/0 0", "s SA 0/1 0", "c A 1/1 0", "s RA 1/1 0", "c S 0/0 0",
                                               "s SA 0/1 0", "c A 1/1 0"}));
    EXPECT_NE(Bytes(read[0].bytes.begin() + 24, read[0].bytes.begin() + 28),
              Bytes(read[4].bytes.begin() + 24, read[4].bytes.begin() + 28));
}

// Never more bytes in a packet than one holds, nor more unacknowledged than the other side's window.
TEST_F(Recorded, ManyBytesAreCutIntoSegmentsAndAcknowledged) {
    const Recording::Ends ends{40'000, 28'700};
    recording.opened(t0, ends);
    recording.said(t0, ends, false, Bytes(65'495 + 20'000, 'x'));
    recording.said(t0, ends, false, Bytes(20'000, 'y'));
    auto lines = tcp_lines(packets(), 40'000);
    lines.erase(lines.begin(), lines.begin() + 3);
    EXPECT_EQ(lines, (std::vector<std::string>{"s PA 1/1 65495", "c A 1/65496 0", "s PA 65496/1 20000",
                                               "s PA 85496/1 20000", "c A 1/105496 0"}));
}

// What is on the disk is whole packets at any moment, so whoever kills the recorder loses the end and nothing else.
TEST_F(Recorded, WhatIsOnTheDiskEndsWithAWholePacket) {
    for (int i = 0; i < 1000; ++i) recording.datagram(t0, group, 25377, Bytes(1000, 1));
    Capture capture(file);
    Capture::Packet packet;
    std::size_t whole = 0;
    while (capture.next(packet)) ++whole;
    EXPECT_FALSE(capture.cut_short());
    EXPECT_GT(whole, 500U);
    EXPECT_LT(whole, 1000U);
}

TEST(Recording, NoticesThatTheDiskIsFull) {
    Recording recording("/dev/full");
    recording.datagram(t0, group, 25377, as_bytes("lost"));
    EXPECT_FALSE(recording.flush());
    EXPECT_FALSE(recording.flush());
}

TEST(Recording, RefusesAPlaceThatCannotBeWritten) {
    EXPECT_THROW(Recording("/proc/no/such/folder/wire.pcapng"), Problem);
}

TEST_F(Recorded, ACaptureGivesBackWhatWasRecorded) {
    const Recording::Ends ends{40'000, 28'700};
    recording.opened(t0, ends);
    recording.said(t0 + 1, ends, false, as_bytes("welcome"));
    recording.datagram(t0 + 2, group, 25377, as_bytes("feed"));
    EXPECT_TRUE(recording.flush());
    Capture capture(file);
    Capture::Packet packet;
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(capture.next(packet));
    EXPECT_EQ(packet.number, 4U);
    EXPECT_EQ(packet.protocol, Capture::Protocol::tcp);
    EXPECT_EQ(packet.source, (Capture::Endpoint{0x7f000001, 28'700}));
    EXPECT_EQ(packet.destination, (Capture::Endpoint{0x7f000001, 40'000}));
    EXPECT_EQ(packet.tcp_flags, Capture::tcp_psh | Capture::tcp_ack);
    EXPECT_EQ(as_text(packet.payload), "welcome");
    ASSERT_TRUE(capture.next(packet));
    EXPECT_EQ(packet.t_ns, t0 + 2);
    EXPECT_EQ(packet.protocol, Capture::Protocol::udp);
    EXPECT_EQ(packet.destination, (Capture::Endpoint{group, 25377}));
    EXPECT_EQ(as_text(packet.payload), "feed");
    EXPECT_TRUE(packet.whole);
    EXPECT_FALSE(capture.next(packet));
    EXPECT_FALSE(capture.cut_short());
}

TEST_F(Recorded, ACaptureTellsThatItsEndIsMissing) {
    recording.datagram(t0, group, 25377, as_bytes("whole"));
    recording.datagram(t0, group, 25377, as_bytes("cut"));
    EXPECT_TRUE(recording.flush());
    std::filesystem::resize_file(file, std::filesystem::file_size(file) - 5);
    Capture capture(file);
    Capture::Packet packet;
    EXPECT_TRUE(capture.next(packet));
    EXPECT_FALSE(capture.next(packet));
    EXPECT_TRUE(capture.cut_short());
}

// A frame as Ethernet and as captures on any interface write it, with microseconds, and padding behind it.
TEST(Capture, ReadsWhatOtherProgramsHaveWritten) {
    const Bytes ip{0x45, 0,  0,  31,  0,    0, 0x40, 0,  64, 17, 0, 0, 127, 0,   0,  1,
                   233,  54, 28, 111, 0x10, 0, 0x63, 33, 0,  11, 0, 0, 'a', 'b', 'c'};
    const Bytes ethernet{1, 0, 0x5e, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0x08, 0};
    const Bytes vlan{1, 0, 0x5e, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0x81, 0, 0, 5, 0x08, 0};
    const Bytes any{0, 0, 3, 4, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0x08, 0};
    for (const auto& [link_type, header] :
         {std::pair{DLT_EN10MB, ethernet}, {DLT_EN10MB, vlan}, {DLT_LINUX_SLL, any}, {DLT_RAW, Bytes{}}}) {
        kavo::test::TemporaryFile file;
        pcap_t* dead = pcap_open_dead(link_type, 65'535);
        pcap_dumper_t* dumper = pcap_dump_open(dead, file.path().c_str());
        Bytes frame = header;
        frame.insert(frame.end(), ip.begin(), ip.end());
        frame.insert(frame.end(), 15, 0xee);
        pcap_pkthdr about{};
        about.ts = {1'700'000'000, 250};
        about.caplen = about.len = static_cast<unsigned>(frame.size());
        pcap_dump(reinterpret_cast<std::uint8_t*>(dumper), &about, frame.data());
        pcap_dump_close(dumper);
        pcap_close(dead);
        Capture capture(file.path());
        Capture::Packet packet;
        ASSERT_TRUE(capture.next(packet)) << link_type;
        EXPECT_EQ(as_text(packet.payload), "abc");
        EXPECT_EQ(packet.t_ns, 1'700'000'000'000'250'000U);
        EXPECT_EQ(packet.destination, (Capture::Endpoint{group, 25377}));
        EXPECT_EQ(packet.source.port, 4096);
    }
}

TEST(Capture, RefusesWhatIsNone) {
    kavo::test::TemporaryFile file;
    EXPECT_THROW(Capture(file.path() + ".missing"), Problem);
    EXPECT_THROW(Capture("/proc/version"), Problem);
}

// As the kernel writes it; the second field is the address and the port in hexadecimal digits, the last one the drops.
TEST(UdpSockets, AreThoseThatHearTheFeed) {
    const std::string head = "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when ... drops\n";
    const std::string rest = " 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 ";
    const std::string table = head + "  1: 6F1C36E9:6321" + rest + "11 2 0000000000000000 5\n" +  // 233.54.28.111:25377
                              "  2: 00000000:6321" + rest + "22 2 0000000000000000 0\n" + "  3: 0100007F:6321" + rest +
                              "33 2 0000000000000000 7\n" + "  4: 6F1C36E9:6322" + rest + "44 2 0000000000000000 7\n" +
                              "  5: 00000000000000000000000000000000:6321" + rest + "55 2 0000000000000000 9\n";
    std::string found;
    for (const UdpSocket& socket : udp_sockets_in(table, group, 25377)) {
        found += std::to_string(socket.inode) + "-" + std::to_string(socket.drops) + " ";
    }
    EXPECT_EQ(found, "11-5 22-0 55-9 ");
}

// A feed of one's own, on an address that nobody else sends to.
struct FeedStage {
    FeedStage() {
        name.sin_family = AF_INET;
        name.sin_port = htons(port.number());
        name.sin_addr.s_addr = htonl(group);
        const in_addr interface { htonl(INADDR_LOOPBACK) };
        for (const int socket : {sender, another_sender}) {
            setsockopt(socket, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
        }
    }
    ~FeedStage() {
        close(sender);
        close(another_sender);
    }
    void send(std::string_view text) const { send(text, sender); }
    void send(std::string_view text, int from) const {
        ASSERT_EQ(sendto(from, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&name), sizeof name),
                  static_cast<ssize_t>(text.size()));
    }
    std::vector<nlohmann::json> notes() const {
        std::vector<nlohmann::json> all;
        std::istringstream lines(kavo::test::content_of(folder.path("kavo.jsonl")));
        for (std::string line; std::getline(lines, line);) all.push_back(nlohmann::json::parse(line));
        return all;
    }

    kavo::test::ReservedPort port;
    sockaddr_in name{};
    int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int another_sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    kavo::test::TemporaryFolder folder;
    Loop loop;
    Recording recording{folder.path("wire.pcapng")};
    RunLog log{folder.path("kavo.jsonl")};
};

TEST(FeedTap, RecordsEveryDatagram) {
    FeedStage stage;
    FeedTap tap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "127.0.0.1");
    std::string heard;
    tap.on_datagram = [&](ByteView datagram) { heard += std::string(as_text(datagram)) + " "; };
    stage.send("one");
    stage.send("two");
    ASSERT_TRUE(stage.loop.turn_until([&] { return heard == "one two "; }, 20s));
    EXPECT_TRUE(stage.recording.flush());
    Capture capture(stage.folder.path("wire.pcapng"));
    Capture::Packet packet;
    for (const char* text : {"one", "two"}) {
        ASSERT_TRUE(capture.next(packet));
        EXPECT_EQ(as_text(packet.payload), text);
        EXPECT_EQ(packet.destination, (Capture::Endpoint{group, stage.port.number()}));
    }
}

// It has arrived before the call that sends it returns, however much later it is read. The system begins to stamp a
// little after it was asked to.
TEST(FeedTap, StampsADatagramWhenItArrivesAndNotWhenItIsRead) {
    FeedStage stage;
    FeedTap tap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "127.0.0.1");
    const auto stamped_on_arrival = [&] {
        const std::uint64_t before = now_ns();
        stage.send("now");
        const std::uint64_t sent = now_ns();
        tap.drain();
        EXPECT_TRUE(stage.recording.flush());
        Capture capture(stage.folder.path("wire.pcapng"));
        Capture::Packet packet;
        while (capture.next(packet)) {
        }
        EXPECT_GE(packet.t_ns, before);
        return packet.t_ns <= sent;
    };
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!stamped_on_arrival()) ASSERT_LT(std::chrono::steady_clock::now(), end);
}

TEST(FeedTap, NotesWhatTheKernelDropsAtASlowReceiver) {
    FeedStage stage;
    const int slow = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1, little = 1;
    setsockopt(slow, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(slow, SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
    const ip_mreq membership{{htonl(group)}, {htonl(INADDR_LOOPBACK)}};
    ASSERT_EQ(setsockopt(slow, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);
    ASSERT_EQ(bind(slow, reinterpret_cast<const sockaddr*>(&stage.name), sizeof stage.name), 0);
    std::size_t heard = 0;
    {
        FeedTap tap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "127.0.0.1");
        tap.on_datagram = [&](ByteView) { ++heard; };
        for (int i = 0; i < 100; ++i) stage.send(std::string(1000, 'x'));
    }
    std::size_t kept = 0;
    char room[2000];
    while (recv(slow, room, sizeof room, MSG_DONTWAIT) > 0) ++kept;
    close(slow);
    EXPECT_EQ(heard, 100U);
    const std::vector<nlohmann::json> notes = stage.notes();
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0]["ev"], "feed_socket");
    EXPECT_EQ(notes[1]["ev"], "kernel_drop");
    EXPECT_EQ(notes[1]["socket"], "client");
    EXPECT_EQ(notes[1]["port"], stage.port.number());
    EXPECT_EQ(notes[1]["drops"], 100 - kept);
}

TEST(FeedTap, NotesWhenOtherReceiversComeAndGo) {
    FeedStage stage;
    FeedTap tap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "127.0.0.1");
    tap.look();
    EXPECT_EQ(stage.notes().size(), 0U);
    const int client = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(client, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ASSERT_EQ(bind(client, reinterpret_cast<const sockaddr*>(&stage.name), sizeof stage.name), 0);
    tap.look();
    tap.look();
    close(client);
    tap.look();
    const std::vector<nlohmann::json> notes = stage.notes();
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0]["ev"], "feed_socket");
    EXPECT_EQ(notes[0]["open"], true);
    EXPECT_EQ(notes[1]["open"], false);
    EXPECT_EQ(notes[0]["socket"], notes[1]["socket"]);
}

// Whoever binds to the port alone hears every group that anybody on this machine has joined.
TEST(FeedTap, HearsNothingOfAnotherGroupOnItsPort) {
    FeedStage stage;
    FeedTap tap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "127.0.0.1");
    FeedTap other(stage.loop, stage.recording, stage.log, "233.54.28.112", stage.port.number(), "127.0.0.1");
    std::string heard, heard_by_other;
    tap.on_datagram = [&](ByteView datagram) { heard += as_text(datagram); };
    other.on_datagram = [&](ByteView datagram) { heard_by_other += as_text(datagram); };
    stage.send("for the first");
    stage.name.sin_addr = client::ipv4_address("233.54.28.112");
    stage.send("for the other");
    tap.drain();
    other.drain();
    EXPECT_EQ(heard, "for the first");
    EXPECT_EQ(heard_by_other, "for the other");
}

TEST(FeedTap, OfOneSenderLeavesOutWhatOthersSend) {
    FeedStage stage;
    FeedTap tap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "127.0.0.1");
    tap.one_sender = true;
    std::vector<std::string> heard;
    tap.on_datagram = [&](ByteView datagram) { heard.emplace_back(datagram.begin(), datagram.end()); };
    stage.send("venue");
    tap.drain();
    stage.send("forged", stage.another_sender);
    stage.send("venue again");
    tap.drain();
    EXPECT_EQ(heard, (std::vector<std::string>{"venue", "venue again"}));
    ASSERT_EQ(stage.notes().size(), 1U);
    EXPECT_EQ(stage.notes()[0]["ev"], "stranger");
}

TEST(FeedTap, RefusesAnInterfaceThatThereIsNot) {
    FeedStage stage;
    EXPECT_THROW(FeedTap(stage.loop, stage.recording, stage.log, "233.54.28.111", stage.port.number(), "203.0.113.7"),
                 Problem);
}

}  // namespace
}  // namespace kavo::companion

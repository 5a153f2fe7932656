#include "kavo/wire/feed_tap.h"

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

#include "client/dial.h"
#include "client/feed_messages.h"
#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/wire/udp_sockets.h"

namespace kavo::companion {

namespace {

constexpr int receive_buffer_bytes = 64 << 20;
constexpr std::size_t batch = 16;
constexpr std::size_t datagram_bytes = 65'536;  // more than any has
constexpr std::size_t control_bytes = 128;
constexpr std::chrono::milliseconds between_looks{100};

struct Batch {
    std::array<mmsghdr, batch> messages{};
    std::array<iovec, batch> places{};
    std::array<sockaddr_in, batch> senders{};
    alignas(cmsghdr) std::array<std::array<std::uint8_t, control_bytes>, batch> controls{};
};

void lay_out(Batch& read, std::vector<std::uint8_t>& room) {
    for (std::size_t i = 0; i < batch; ++i) {
        read.places[i] = {room.data() + i * datagram_bytes, datagram_bytes};
        read.messages[i].msg_hdr.msg_iov = &read.places[i];
        read.messages[i].msg_hdr.msg_iovlen = 1;
        read.messages[i].msg_hdr.msg_name = &read.senders[i];
        read.messages[i].msg_hdr.msg_namelen = sizeof read.senders[i];
        read.messages[i].msg_hdr.msg_control = read.controls[i].data();
        read.messages[i].msg_hdr.msg_controllen = control_bytes;
    }
}

template <typename T>
std::optional<T> told(const msghdr& about, int what) {
    msghdr walked = about;
    for (cmsghdr* part = CMSG_FIRSTHDR(&walked); part != nullptr; part = CMSG_NXTHDR(&walked, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != what) continue;
        T value{};
        std::memcpy(&value, CMSG_DATA(part), sizeof value);
        return value;
    }
    return std::nullopt;
}

void prepare_to_listen(int socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    setsockopt(socket, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    // Beyond the limit of the system where we may, and up to it otherwise.
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &receive_buffer_bytes, sizeof receive_buffer_bytes) != 0) {
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receive_buffer_bytes, sizeof receive_buffer_bytes);
    }
}

// Joined groups only: otherwise the system hands over what anybody on this machine has joined, on any interface.
bool join(int socket, in_addr group, const std::string& interface_address) {
    const int off = 0;
    setsockopt(socket, IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
    const ip_mreq membership{group, client::ipv4_address(interface_address)};
    return setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

int open_tap(const std::string& group, std::uint16_t port, const std::string& interface_address) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr = client::ipv4_address(group);
    const int opened = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    prepare_to_listen(opened);
    bool heard = bind(opened, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    if (heard && IN_MULTICAST(ntohl(name.sin_addr.s_addr))) heard = join(opened, name.sin_addr, interface_address);
    if (heard) return opened;
    const std::string reason = std::strerror(errno);
    close(opened);
    throw Problem(Status::bench, "cannot listen to " + group + ":" + std::to_string(port) + " on " + interface_address +
                                     " (" + reason + "): name an address of this machine with --iface");
}

std::uint64_t inode_of(int socket) {
    struct stat about {};
    fstat(socket, &about);
    return about.st_ino;
}

}  // namespace

FeedTap::FeedTap(Loop& loop, Recording& recording, RunLog& log, const std::string& group, std::uint16_t port,
                 const std::string& interface_address)
    : loop_(loop),
      recording_(recording),
      log_(log),
      group_(ntohl(client::ipv4_address(group).s_addr)),
      port_(port),
      socket_(open_tap(group, port, interface_address)),
      own_inode_(inode_of(socket_)),
      looked_ns_(now_ns()),
      room_(batch * datagram_bytes) {
    // What sockets that are there already have lost before now is none of this run's.
    for (const UdpSocket& other : udp_sockets(group_, port_)) {
        drops_[other.inode] = other.drops;
        there_.insert(other.inode);
        note_socket(other.inode, true, looked_ns_);
    }
    loop_.watch(socket_, POLLIN, [this](short) { drain(); });
    look_again_soon();
}

FeedTap::~FeedTap() {
    drain();
    look();
    loop_.cancel(next_look_);
    loop_.forget(socket_);
    close(socket_);
}

void FeedTap::drain() {
    Batch read;
    for (int count = static_cast<int>(batch); count == static_cast<int>(batch);) {
        lay_out(read, room_);
        count = recvmmsg(socket_, read.messages.data(), batch, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i) {
            const mmsghdr& message = read.messages[static_cast<std::size_t>(i)];
            const auto* bytes = static_cast<const std::uint8_t*>(message.msg_hdr.msg_iov->iov_base);
            if (one_sender && is_of_another(read.senders[static_cast<std::size_t>(i)])) continue;
            take(message.msg_hdr, ByteView(bytes, message.msg_len));
        }
    }
}

bool FeedTap::is_of_another(const sockaddr_in& sender) {
    if (!sender_) sender_ = sender;
    if (sender.sin_port == sender_->sin_port && sender.sin_addr.s_addr == sender_->sin_addr.s_addr) return false;
    log_.write(now_ns(), "stranger", {{"port", std::int64_t{ntohs(sender.sin_port)}}});
    return true;
}

void FeedTap::take(const msghdr& about, ByteView datagram) {
    const auto stamp = told<timespec>(about, SO_TIMESTAMPNS);
    const std::uint64_t t_ns =
        stamp ? static_cast<std::uint64_t>(stamp->tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(stamp->tv_nsec)
              : now_ns();
    if (const auto drops = told<std::uint32_t>(about, SO_RXQ_OVFL)) note_drops(own_inode_, *drops);
    recording_.datagram(t_ns, group_, port_, datagram);
    for (ByteView rest = datagram; const auto packet = client::read_feed_packet(rest);) {
        if (!packet->message.empty()) received_.add({packet->header.sequence, packet->header.sequence});
    }
    if (on_datagram) on_datagram(datagram);
}

void FeedTap::look_again_soon() {
    next_look_ = loop_.after(between_looks, [this] {
        look();
        look_again_soon();
    });
}

void FeedTap::look() {
    const std::uint64_t now = now_ns();
    std::set<std::uint64_t> there;
    for (const UdpSocket& found : udp_sockets(group_, port_)) {
        there.insert(found.inode);
        if (!there_.contains(found.inode)) note_socket(found.inode, true, now);
        note_drops(found.inode, found.drops);
    }
    for (const std::uint64_t inode : there_) {
        if (!there.contains(inode)) note_socket(inode, false, now);
    }
    there_ = std::move(there);
    looked_ns_ = now;
}

void FeedTap::note_socket(std::uint64_t inode, bool open, std::uint64_t now) {
    if (inode == own_inode_) return;
    log_.write(now, "feed_socket",
               {{"socket", static_cast<std::int64_t>(inode)},
                {"open", open},
                {"ms", static_cast<std::int64_t>((now - looked_ns_ + ns_per_ms - 1) / ns_per_ms)}});
}

void FeedTap::note_drops(std::uint64_t inode, std::uint64_t drops) {
    std::uint64_t& known = drops_[inode];
    if (drops <= known) return;
    log_.write(now_ns(), "kernel_drop",
               {{"port", std::int64_t{port_}},
                {"socket", inode == own_inode_ ? std::string_view("kavo") : std::string_view("client")},
                {"drops", static_cast<std::int64_t>(drops - known)}});
    if (on_drops) on_drops(inode == own_inode_, drops - known);
    known = drops;
}

}  // namespace kavo::companion

#include "kavo/bench/isolation.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "kavo/basics/problem.h"
#include "kavo/bench/descriptor.h"

namespace kavo::companion {

namespace {

[[noreturn]] void not_allowed(const std::string& what) {
    throw Problem(Status::bench,
                  "--isolated: " + what + ": " + std::strerror(errno) +
                      ". This machine allows no network of one's own to this user; leave --isolated out, "
                      "and ports are leased instead.");
}

void write_to(const char* file, const std::string& text) {
    std::ofstream out(file);
    out << text << std::flush;
    if (!out) not_allowed(std::string("cannot write ") + file);
}

// Everybody is in there who they are outside.
void map_user(uid_t user, gid_t group) {
    write_to("/proc/self/setgroups", "deny");
    write_to("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
    write_to("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
}

void bring_loopback_up(int socket) {
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (ioctl(socket, SIOCSIFFLAGS, &request) != 0) not_allowed("cannot bring loopback up");
}

// For receivers that name no interface: they get the one to which the route leads.
void route_multicast(int socket) {
    const auto address = [](sockaddr& place, const char* text) {
        auto& name = reinterpret_cast<sockaddr_in&>(place);
        name.sin_family = AF_INET;
        inet_pton(AF_INET, text, &name.sin_addr);
    };
    char loopback[] = "lo";
    rtentry route{};
    address(route.rt_dst, "224.0.0.0");
    address(route.rt_genmask, "240.0.0.0");
    route.rt_flags = RTF_UP;
    route.rt_dev = loopback;
    if (ioctl(socket, SIOCADDRT, &route) != 0) not_allowed("cannot set the route for multicast");
}

}  // namespace

std::string isolate() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    const std::string enter = "nsenter -t " + std::to_string(getpid());
    const bool as_root = unshare(CLONE_NEWNET) == 0;
    if (!as_root) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) not_allowed("cannot make a network namespace");
        map_user(user, group);
    }
    const Descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    bring_loopback_up(socket.get());
    route_multicast(socket.get());
    return enter + (as_root ? " -n" : " -U -n --preserve-credentials");
}

}  // namespace kavo::companion

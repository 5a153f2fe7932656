// The few things that we ask of sockets. Errors are values: a descriptor of -1, or the kind of end that a read met.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "common/commentary.h"
#include "common/transport.h"

namespace kavo {

// A dotted quad as an address; a text that is none gives 0.0.0.0.
in_addr to_address(const std::string& text);

// A listening TCP socket on all addresses, not blocking, its address reusable. When it cannot be opened, bound or
// listened on, says `what` with the system's reason and gives no_socket.
int open_listener(std::uint16_t port, int backlog, const char* what, const Commentary& commentary);

// The next waiting connection, not blocking and without delay of small packets; no_socket when there is none.
//   exhausted  set when connections may be waiting but descriptors or memory have run out
int accept_connection(int listener, bool& exhausted);

// Whoever sends without an end is read in turns: one read that fills its scratch, or so many that do not.
inline constexpr std::size_t read_bytes = 65'536;
inline constexpr int reads_a_turn = 16;

// What a transport does, over sockets; see there.
//   scratch  where one read puts its bytes
ReadEnd read_available(int socket, MutableBytes scratch, Bytes& buffer, bool& arrived, bool end_possible);
// A dead peer raises no signal.
std::optional<std::size_t> send_packet(int socket, ByteView packet, bool more_follows);
void push_packets(int socket);
std::size_t unacknowledged_bytes(int socket);
void finish_sending(int socket);

// The peers that call at this listener.
//   listener  -1: nobody ever calls; may be opened later
Transport socket_transport(const int& listener);

// A UDP socket on a port of 127.0.0.1, not blocking. When it cannot be opened or bound, says `what` with the system's
// reason and gives no_socket.
int open_local_datagrams(std::uint16_t port, const char* what, const Commentary& commentary);

void close_socket(int socket);

}  // namespace kavo

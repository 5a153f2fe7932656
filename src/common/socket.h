// The few things that we ask of sockets. Errors are values: a descriptor of -1, or the kind of end that a read met.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "common/bytes.h"

namespace kavo {

inline constexpr int no_socket = -1;

// A dotted quad as an address; a text that is none gives 0.0.0.0.
in_addr to_address(const std::string& text);

// A listening TCP socket on all addresses, not blocking, its address reusable. When it cannot be opened, bound or
// listened on, prints `what` with the system's reason and gives no_socket.
int open_listener(std::uint16_t port, int backlog, const char* what);

// The next waiting connection, not blocking and without delay of small packets; no_socket when there is none.
//   exhausted  set when connections may be waiting but descriptors or memory have run out
int accept_connection(int listener, bool& exhausted);

inline constexpr std::size_t read_bytes = 65'536;  // one read of a connection
// Whoever sends without an end is read in turns, so that the others have theirs.
inline constexpr int reads_a_turn = 16;

enum class ReadEnd { open, gone };
// Appends what has arrived to `buffer`, at most a turn of it, and says how the connection is then: open, or gone with
// its peer.
// `scratch` is where one read puts its bytes. `arrived` tells whether there was anything.
ReadEnd read_available(int socket, MutableBytes scratch, Bytes& buffer, bool& arrived);

// One send of the whole packet; what the socket does not take is lost, and a dead peer raises no signal.
//   more_follows  lets the kernel wait for the next packet of the same batch, which must follow at once
void send_packet(int socket, ByteView packet, bool more_follows);

// Sends at once what the kernel still keeps back for a packet that was to follow.
void push_packets(int socket);

// Sends everything, however long the socket takes, as long as it takes something: false when the peer is gone, or has
// taken nothing for two seconds, less than the silence that would make other clients think that we are gone.
bool send_all(int socket, ByteView bytes);

// A UDP socket on a port of 127.0.0.1, not blocking. When it cannot be opened or bound, prints `what` with the system's
// reason and gives no_socket.
int open_local_datagrams(std::uint16_t port, const char* what);

void close_socket(int socket);

}  // namespace kavo

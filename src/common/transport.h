// How a service meets its peers: over sockets, or in memory. Nothing here ever waits, and errors are values.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>

#include "common/bytes.h"

namespace kavo {

inline constexpr int no_socket = -1;

// How a connection is after a read: open with nothing left that had arrived, open with more behind what a turn takes,
// or gone with its peer.
enum class ReadEnd { open, more, gone };

// Connections that a service accepts in a pass; more wait for the next one.
inline constexpr int most_accepts_in_a_pass = 256;
// Of what a peer is owed, handed over at once.
inline constexpr std::size_t longest_send_bytes = 1'048'576;

struct Transport {
    // The next waiting connection; no_socket when there is none.
    //   exhausted  set when connections may be waiting but descriptors or memory have run out
    std::function<int(bool& exhausted)> accept;
    // Appends what has arrived to `buffer`, a turn of it at most. `arrived` tells whether there was anything.
    //   end_possible  the peer may have ended: it is looked for behind the last byte. Otherwise a read that comes back
    //                 short has taken all that had arrived, and spares the look
    std::function<ReadEnd(int fd, Bytes& buffer, bool& arrived, bool end_possible)> read;
    // How many of the bytes, from the first one on, the connection takes now; nothing when the peer is gone.
    //   more_follows  the next packet of the same batch comes at once, so this one may wait for it
    std::function<std::optional<std::size_t>(int fd, ByteView bytes, bool more_follows)> send;
    // Lets what waits go out, when the packet that was to follow did not come.
    std::function<void(int fd)> push;
    // How many bytes the connection has taken and the peer's side has not.
    std::function<std::size_t(int fd)> unacknowledged;
    // Tells the peer that nothing follows what has been sent. Reading goes on.
    std::function<void(int fd)> finish;
    std::function<void(int fd)> close;

    int accepts_limit = most_accepts_in_a_pass;
    std::size_t send_limit_bytes = longest_send_bytes;
};

}  // namespace kavo

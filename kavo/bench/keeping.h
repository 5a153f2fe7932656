// The keeper from within, and what it and kavo say to each other.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

namespace kavo::companion {

// From kavo to the keeper, followed by `size` bytes of text.
struct KeeperRequest {
    char what = 0;  // 's' start, 'k' signal
    char which = 0;
    std::int32_t number = 0;  // the signal; for a start, how many words of the text are the command
    std::uint64_t size = 0;
};
// From the keeper to kavo.
struct KeeperReply {
    char what = 0;  // 's' started, 'e' ended
    char which = 0;
    std::int32_t number = 0;  // errno, 0 when it was started; the status of waitpid
    std::int64_t pid = 0;
};

// The whole life of the keeper. Ends the process.
//   conversation  a stream socket to kavo
//   errors        where the venue's standard error goes
[[noreturn]] void keep(int conversation, int errors, const std::filesystem::path& temporary);

// The processes whose parent this process is.
std::set<pid_t> children();
// Kills the children of this process but for `spared`, and theirs in turn, and waits for them.
void kill_children(const std::set<pid_t>& spared, std::chrono::milliseconds longest);

}  // namespace kavo::companion

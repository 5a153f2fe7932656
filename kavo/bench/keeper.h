// Keeps a bench together, whoever dies first. Between kavo and all that belongs to the bench stands a small process,
// the keeper. It starts the venue and the user's command, and adopts whatever they leave behind.
//
//   kavo dies      the keeper sees the end of their conversation, ends everything and removes a temporary folder
//   keeper dies    the system kills what it has started; what those leave behind is adopted, and ended, by kavo
//   others die     the keeper tells kavo
//
// The keeper keeps what kavo has open at its birth, above all the lease of the ports, until nothing of the bench lives.
// Nothing of this is proof against two deaths by kill -9 in the same moment, kavo's and the keeper's.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "kavo/basics/loop.h"
#include "kavo/bench/descriptor.h"

namespace kavo::companion {

enum class Kept : char { venue = 'v', command = 'c' };

class Keeper {
public:
    //   temporary  a folder that is to be removed at the end, if it is there then; empty is none
    // To be made while kavo has one thread. Children that kavo has already are left alone at the end.
    Keeper(Loop& loop, std::filesystem::path temporary);
    // Ends everything: asks by SIGTERM, and kills what is still there half a second later.
    ~Keeper();
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    // Starts a program, found in the path, in a process group of its own. The venue's standard error goes to
    // venue_errors(); the command has kavo's own streams. One of each at a time. The process; Throws Problem when it
    // cannot be started.
    pid_t start(Kept which, const std::vector<std::string>& command, const std::vector<std::string>& environment);
    // To the venue, or to all of the command's process group; nothing once it has ended.
    void signal(Kept which, int number);
    // What the venue says; the descriptor is the keeper's.
    int venue_errors() const { return errors_.get(); }

    std::function<void(Kept which, int wait_status)> on_end;
    std::function<void()> on_lost;  // the keeper was killed, and everything with it

private:
    void hear();
    void tell();
    void lose();
    void ask(char what, Kept which, int number, const std::string& text);

    Loop& loop_;
    std::filesystem::path temporary_;
    std::set<pid_t> children_before_;
    Descriptor conversation_, errors_;
    pid_t pid_ = -1;
    std::string heard_;
};

}  // namespace kavo::companion

// A private bench: a venue of its own on leased ports, behind a relay, with everything recorded, in a folder of its
// own. It is ready when the constructor returns, and nothing of it is left when it is gone, however that came about.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/basics/folder.h"
#include "kavo/basics/loop.h"
#include "kavo/basics/run_log.h"
#include "kavo/wire/feed_tap.h"
#include "kavo/wire/recording.h"
#include "kavo/wire/relay.h"

namespace kavo::companion {

struct BenchWishes {
    std::filesystem::path folder;  // new or empty; made if it is not there; "": a temporary one, removed at the end
    std::filesystem::path venue;   // the simulator's program; "": what KAVO_ME names, or the one beside kavo
    std::string scenario;
    std::vector<std::string> flags;  // of the simulator, but for those that are the bench's own: ports and truth files
    bool isolated = false;           // a network namespace of its own, with the default group and ports
};

class Bench {
public:
    // To be made while the process has one thread: an isolated one takes all of the process into its network. Throws
    // Problem, with status usage for wishes that cannot be meant, and status bench for what this machine refuses.
    Bench(Loop& loop, const BenchWishes& wishes);
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    const BenchFacts& facts() const;
    const RunFolder& folder() const;
    RunLog& log();
    Relay& orders();
    Relay& recovery();
    FeedTap& feed();

    // Sends a control word and hands its reply over, without its line end, when it comes; "" when none comes within two
    // seconds. `stop` is not for this: the venue would lose lines of the book truth.
    void control(std::string_view word, std::function<void(std::string reply)> answered);
    // Called with each line that the venue says, as it is said.
    std::function<void(std::string_view line)> on_line;

    // A process of the user's, in a group of its own, that does not outlive the bench; one at a time. `ended` is called
    // with the status of waitpid. The environment is kavo's own with KAVO_* added. Throws Problem, status usage, when
    // it cannot be started.
    void start_command(const std::vector<std::string>& command, std::function<void(int wait_status)> ended);
    // To the whole group; nothing once the command has ended.
    void signal_command(int number);

    bool running() const;  // the venue
    // How a venue that runs no longer has ended, with the last lines that it said, for an error message.
    std::string last_words() const;
    // Asks, as the house, for what the recording of the feed lacks, unless the folder is a temporary one; then ends the
    // venue by SIGTERM, so that everything is written, and waits for it. The status of waitpid. Throws Problem
    // when something could not be written: the disk is full, say. So does the loop meanwhile, a second later at most.
    int stop();

private:
    struct Inside;
    std::unique_ptr<Inside> inside_;
};

}  // namespace kavo::companion

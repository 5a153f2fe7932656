// A market that moves, without anybody on its feed, and `kavo feed` on it.
#pragma once

#include <nlohmann/json.hpp>

#include "system/full_venue.h"
#include "system/shown_books.h"

namespace kavo::test {

using Flags = std::vector<std::string>;

inline std::string text(std::uint64_t number) {
    return std::to_string(number);
}

// `kavo feed` on the feed that goes to a port of 127.0.0.1.
class FeedTool {
public:
    FeedTool(const ReservedPort& feed, const Flags& more) : process("/bin/sh", command(feed, more)) {
        EXPECT_TRUE(process.catches(SIGTERM)) << process.said();
    }

    // Waits until it has shown this message.
    void shows(std::uint64_t message) {
        EXPECT_TRUE(process.says("\n" + text(message) + " ")) << message << " in " << process.said();
    }
    // Ends it in good order; everything that it has printed.
    std::string finish() {
        process.signal(SIGTERM);
        EXPECT_EQ(process.wait(), 0);
        return process.said();
    }

    Process process;

private:
    static Flags command(const ReservedPort& feed, const Flags& more) {
        Flags flags = {"feed", "--mcast", "127.0.0.1", "--port", text(feed.number())};
        flags.insert(flags.end(), more.begin(), more.end());
        return overheard(KAVO_PATH, flags);
    }
};

// The simulator with a market that moves every few milliseconds, and nobody on its feed.
class MovingVenue {
public:
    MovingVenue(const ReservedPort& feed, const ServicePorts& services, const Flags& more = {})
        : process(KAVO_ME_PATH, flags(feed, services, more)), control(services.control.number()) {
        EXPECT_TRUE(process.catches(SIGTERM)) << process.said();
    }

    void move_on(std::uint64_t messages) {
        for (const std::uint64_t end = control.next_sequence() + messages; control.next_sequence() < end;) {
            process.said();  // or its pipe fills up
        }
    }
    // The market stands still from here on; the number of its last message.
    std::uint64_t pause() {
        EXPECT_EQ(control.ask("pause"), "ok pause\n");
        return control.next_sequence() - 1;
    }

    const TemporaryFile truth;

private:
    Flags flags(const ReservedPort& feed, const ServicePorts& services, const Flags& more) const {
        Flags all =
            services.flags({"--mcast", "127.0.0.1", "--port", text(feed.number()), "--meo-port", text(meo_.number()),
                            "--symbols", "AAPL:190.00,MSFT:410.00", "--interval-ms", "5", "--truth-out", truth.path()});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    ReservedPort meo_;

public:
    Process process;
    ControlClient control;
};

struct Ports {
    ReservedPort feed;
    ServicePorts services;

    Flags book() const { return {"--book", "--retrans-port", text(services.retransmission.number())}; }
    Flags book_without_service() const { return {"--book", "--retrans-port", "0"}; }
};

// What a verb has printed with --json.
inline std::vector<nlohmann::json> json_lines(const std::string& said) {
    std::vector<nlohmann::json> all;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        all.push_back(nlohmann::json::parse(line, nullptr, false));
        EXPECT_FALSE(all.back().is_discarded()) << line;
    }
    return all;
}

// A verb of kavo that comes to an end by itself; its output is overheard like its errors.
class Verb {
public:
    Verb(const Flags& words, const LiveVenue::Environment& environment = {})
        : process_("/bin/sh", overheard(KAVO_PATH, words), environment),
          status(process_.wait()),
          said(process_.said()) {}

private:
    Process process_;

public:
    const int status;
    const std::string said;
};

}  // namespace kavo::test

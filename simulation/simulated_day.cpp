#include "simulated_day.h"

#include <algorithm>
#include <array>

#include "actors/controls.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t longest_jump_ms = 3'000;  // but for the few that end every client's patience
constexpr std::uint64_t longest_wait_ms = 5;

// Seven clients on five names: two pairs meet in one user's stream.
constexpr std::array<std::string_view, 7> usernames{"alice", "bob", "carol", "dave5", "e", "alice", "bob"};

Client::Identity identity(std::size_t number) {
    const auto letter = static_cast<char>('a' + number);
    const bool only_one = number == 3 || number == 4;  // nor does anybody claim to be one of these
    return {std::string(usernames.at(number)), std::string("MP") + static_cast<char>('A' + number) + "1",
            std::string(1, letter), number >= 5, only_one};
}

}  // namespace

SimulatedDay::SimulatedDay(std::uint64_t seed) : dice_(seed), plan_(plan_for(seed, dice_)), day_(plan_, dice_.bits()) {
    for (unsigned i = 0; i < plan_.receivers; ++i) receivers_.emplace_back(stage_, dice_.bits(), i == 0);
    for (unsigned i = 0; i < plan_.clients; ++i) {
        clients_.emplace_back(stage_, agenda_, receivers_.front(), identity(i), dice_.bits());
    }
}

void SimulatedDay::play() {
    stage_.start_day();
    for (unsigned pass = 0; pass < plan_.passes; ++pass) {
        act();
        if (plan_.control_port && dice_.one_in(25)) command();
        stage_.pass();
        wait();
    }
    end_day();
}

// Most act before the venue's poll. What the others do between the poll and the pass is there, but the pass does not
// know.
void SimulatedDay::act() {
    std::vector<Client*> late;
    for (Receiver& receiver : receivers_) receiver.act();
    for (Client& client : clients_) {
        if (dice_.one_in(6)) {
            late.push_back(&client);
        } else {
            client.act();
        }
    }
    stage_.poll();
    for (Client* client : late) client->act();
}

// One, or more than are carried out in a pass where that is few.
void SimulatedDay::command() {
    const bool many = plan_.small_limits && dice_.one_in(2);
    for (std::uint64_t left = many ? dice_.between(2, 5) : 1; left > 0; --left) stage_.command(some_command(dice_));
}

// Mostly as short as the main loop's, sometimes longer, and sometimes to the very moment at which something falls due.
// Now and then somebody sets the wall clock.
void SimulatedDay::wait() {
    const std::uint64_t now = stage_.now_ms();
    if (dice_.one_in(300)) stage_.let_pass(0, static_cast<std::int64_t>(dice_.below(4'000'000'000)) - 2'000'000'000);
    const auto next = agenda_.next_after(now);
    if (next && dice_.one_in(6)) return stage_.let_pass(std::min(*next - now, longest_jump_ms));
    if (next && dice_.one_in(200)) return stage_.let_pass(*agenda_.last() - now);
    if (dice_.one_in(12)) return stage_.let_pass(dice_.below(300));
    if (dice_.one_in(80)) return stage_.let_pass(dice_.below(2'500));
    const std::uint64_t ms = dice_.below(longest_wait_ms + 1);
    const std::uint64_t us = dice_.below(1'000);
    stage_.let_pass(ms, static_cast<std::int64_t>(us * 1'000));
}

// The market stands still, everybody goes, and what was still pending happens.
void SimulatedDay::end_day() {
    day_.calm_down();
    for (Client& client : clients_) client.leave();
    constexpr int passes_for_what_has_been_read = 10;
    for (int i = 0; i < passes_for_what_has_been_read; ++i) day_.pass_after(1);
    day_.pass_after(400);
    hear_the_rest();
    recover_the_rest();
    day_.end();
}

void SimulatedDay::hear_the_rest() {
    for (Client& client : clients_) {
        client.come_for_the_rest();
        day_.pass_after(1);
        client.listen();
        client.leave();
        day_.pass_after(1);
    }
}

// A heartbeat tells everyone how far the feed has come.
void SimulatedDay::recover_the_rest() {
    constexpr int rounds = 24;
    for (Receiver& receiver : receivers_) receiver.settle_down();
    day_.pass_after(1000);
    for (int round = 0; round < rounds; ++round) {
        for (Receiver& receiver : receivers_) receiver.act();
        day_.pass_after(1);
    }
}

DayReport SimulatedDay::audit() const {
    return day_.audit([this](const Auditor& auditor) { return compare_with_actors(auditor); });
}

// What the clients and receivers hold in their hands in the end.
std::string SimulatedDay::compare_with_actors(const Auditor& auditor) const {
    for (const Receiver& receiver : receivers_) {
        if (!receiver.complaint().empty()) return receiver.complaint();
        const bool all = receiver.next_sequence() == stage_.published().size() + 1;
        if (!all) return "a receiver never recovers what it has missed";
    }
    for (const Client& client : clients_) {
        if (!client.complaint().empty()) return client.complaint();
        const model::Stream& stream = auditor.streams().at(client.username());
        for (std::uint64_t number = stream.oldest; number <= stream.last_number(); ++number) {
            if (!client.heard().contains(number)) return client.username() + " never hears the whole stream";
        }
        for (const auto& [number, message] : client.heard()) {
            if (number == 0 || number > stream.last_number() || message != stream.message(number)) {
                return client.username() + " has heard something else as message " + std::to_string(number);
            }
        }
    }
    return {};
}

}  // namespace kavo::simulation

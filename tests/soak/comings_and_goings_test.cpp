// Users who leave and come back at once, again and again: the venue has always noticed that they have left, whatever
// else arrives between the end of one connection and the login on the next.
#include <poll.h>

#include <deque>
#include <memory>

#include "soak/stage.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t logins_each = sanitized ? 5'000 : 50'000;  // with each number of users
constexpr std::size_t most_at_once = 8;                          // find room in the queue of the venue's listener

struct User {
    Bytes login;
    std::unique_ptr<Peer> peer;
};

using Return = void (*)(User& user, std::uint16_t port);

void leave_and_connect(User& user, std::uint16_t port) {
    user.peer.reset();
    user.peer = std::make_unique<Peer>(port);
    user.peer->pour(user.login);
}

void connect_and_leave(User& user, std::uint16_t port) {
    user.peer = std::make_unique<Peer>(port);  // the connection before ends once this one is there
    user.peer->pour(user.login);
}

class Traffic {
public:
    Traffic(std::uint16_t port, std::size_t users, Return come_back) : port_(port), come_back_(come_back) {
        for (std::size_t i = 0; i < users; ++i) {
            const Bytes payload = login("u" + std::to_string(i)).payload();
            users_.push_back({esesm::build_packet(esesm::PacketType::login_request, payload), nullptr});
            inside_.push_back(&users_.back());
        }
    }

    // So many logins, as many at a time as the venue takes. Tells how many were rejected.
    std::size_t come_and_go(std::size_t logins) {
        rejected_ = 0;
        for (std::size_t begun = 0; begun < logins || !outside_.empty();) {
            for (; begun < logins && outside_.size() < most_at_once && !inside_.empty(); ++begun) {
                outside_.push_back(inside_.front());
                inside_.pop_front();
                come_back_(*outside_.back(), port_);
            }
            let_in();
        }
        return rejected_;
    }

private:
    // Whoever has an answer by now.
    void let_in() {
        std::vector<pollfd> polled;
        for (const User* user : outside_) polled.push_back({user->peer->socket(), POLLIN, 0});
        const auto longest = std::chrono::duration_cast<milliseconds>(patience);
        if (poll(polled.data(), polled.size(), static_cast<int>(longest.count())) <= 0) {
            throw std::runtime_error("no answer to a login");
        }
        std::vector<User*> still_outside;
        for (User* user : outside_) {
            const auto packet = user->peer->next_packet(milliseconds(0));
            if (!packet && user->peer->open()) {
                still_outside.push_back(user);
                continue;
            }
            rejected_ += !packet || !is_accepted_login(*packet);
            inside_.push_back(user);
        }
        outside_.swap(still_outside);
    }

    std::uint16_t port_;
    Return come_back_;
    std::deque<User> users_;
    std::deque<User*> inside_;
    std::vector<User*> outside_;  // on a connection without an answer yet
    std::size_t rejected_ = 0;
};

void expect_all_to_be_let_in(Return come_back) {
    for (const std::size_t users : {2u, 4u, 40u, 200u}) {
        Stage stage({"--quiet"});
        const auto start = steady_clock::now();
        const std::size_t rejected = Traffic(stage.port(), users, come_back).come_and_go(logins_each);
        report("logins of " + std::to_string(users) + " users", logins_each);
        report("of which are rejected", rejected);
        report("time", in_ms(steady_clock::now() - start) / 1000, "s");
        EXPECT_EQ(rejected, 0u);
        stage.stop();
    }
}

TEST(ComingsAndGoings, OfUsersWhoLeaveAndConnectAtOnceAreNeverRejected) {
    expect_all_to_be_let_in(leave_and_connect);
}

TEST(ComingsAndGoings, OfUsersWhoConnectBeforeTheyLeaveAreNeverRejected) {
    expect_all_to_be_let_in(connect_and_leave);
}

}  // namespace
}  // namespace kavo::test

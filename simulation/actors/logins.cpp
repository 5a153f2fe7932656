// How a client gets in, or does not.
#include <algorithm>

#include "actors/client.h"

namespace kavo::simulation {

void Client::come_in() {
    if (dice_.one_in(3)) return;  // takes its time
    if (dice_.one_in(identity_.clumsy ? 2 : 25)) return log_in_badly();
    const std::uint64_t choice = dice_.below(12);
    if (choice == 0) return log_in(0);
    if (choice == 1) return log_in(1);
    if (choice == 2) return log_in(dice_.between(1, next_));
    log_in(next_);
}

void Client::log_in(std::uint64_t requested_sequence) {
    requested_ = requested_sequence;
    client::Login login = client::login(identity_.username, requested_sequence);
    if (dice_.one_in(3)) login.matching_engine_id = stage_.plan().engine.session;
    say('l', login.payload());
}

void Client::log_in_badly() {
    client::Login login = client::login(identity_.username, next_);
    switch (dice_.below(13)) {
        case 0: login.session_protocol = "1.00"; break;
        case 1: login.application_protocol = "DoM1.3"; break;
        case 2: login.matching_engine_count = dice_.pick<std::uint8_t>({0, 2, 255}); break;
        case 3: login.username.clear(); break;
        case 4: login.computer_id.clear(); break;
        case 5: login.matching_engine_id = static_cast<std::uint8_t>(stage_.plan().engine.session + 1); break;
        case 6: login.requested_sequence = next_ + 1 + dice_.below(1000); break;
        case 7: login.requested_sequence = ~std::uint64_t{0}; break;
        case 8: return say('l', Bytes(dice_.below(27)));
        case 9: return say('U', new_order());
        case 10: return say(dice_.pick({'Q', 's', 'a'}));
        case 11: return say('X');
        default:
            login.username = dice_.pick({"alice", "bob", "carol"});
            impostor_ = true;
            break;
    }
    requested_ = login.requested_sequence;
    say('l', login.payload());
}

void Client::come_for_the_rest() {
    proper_ = true;
    peer_ = &stage_.connect_client();
    logged_in_ = impostor_ = false;
    outgoing_.clear();
    incoming_ = {};
    next_ = first_missing();
    log_in(next_);
    send_out();
}

std::uint64_t Client::first_missing() const {
    std::uint64_t number = 1;
    while (heard_.contains(number)) ++number;
    return number;
}

}  // namespace kavo::simulation

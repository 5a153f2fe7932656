#include "kavo/bench/readiness.h"

#include <random>

namespace kavo::companion {

namespace {

constexpr std::chrono::milliseconds ask_again_after{20};

std::string random_word() {
    std::random_device random;
    return "kavo-" + std::to_string(random()) + "-" + std::to_string(random());
}

}  // namespace

Readiness::Readiness(Loop& loop, VenueOutput& output, ControlWords& control)
    : loop_(loop), output_(output), control_(control), nonce_(random_word()) {}

Readiness::~Readiness() {
    loop_.cancel(again_);
}

// The control port is open before the book is made, so a mark that goes out at once is answered in the first pass. What
// begins with the program's name is a port that could not be opened, and the simulator goes on without.
void Readiness::hear(std::string_view line) {
    if (line.starts_with("kavo_me: ")) failure_ = "the venue started without all that a bench needs";
    banner_ |= line.starts_with("[kavo_me] DoM/MACH ");
    marked_ |= line.starts_with("bench: mark " + nonce_ + " ");
    if (asked_ || !line.starts_with("bench: control on ")) return;
    asked_ = true;
    ask();
}

void Readiness::ask() {
    control_.send("mark " + nonce_, [this](const std::string& reply) { take(reply); });
}

// The venue says a mark before it answers. No answer at all may be a machine with too much to do.
void Readiness::take(const std::string& reply) {
    if (reply.empty()) {
        again_ = loop_.after(ask_again_after, [this] { ask(); });
        return;
    }
    output_.drain();
    answered_ = true;
    if (!marked_) failure_ = "another process answers on the control port of the bench";
}

}  // namespace kavo::companion

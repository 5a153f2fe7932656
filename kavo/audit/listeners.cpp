#include "kavo/audit/listeners.h"

#include <algorithm>
#include <limits>

namespace kavo::companion {

namespace {

Listener& listener_named(const std::string& user, std::vector<Listener>& listeners) {
    const auto known =
        std::find_if(listeners.begin(), listeners.end(), [&](const Listener& it) { return it.user == user; });
    if (known != listeners.end()) return *known;
    listeners.push_back({user, {}, {}});
    return listeners.back();
}

void take(const RecoveryAttempt& attempt, Listener& listener) {
    if (listener.lives.empty() || attempt.is_beginning()) {
        if (!listener.lives.empty()) listener.lives.back().ends_ns = attempt.asked.ns;
        listener.lives.push_back({{}, attempt.asked.ns, std::numeric_limits<std::uint64_t>::max(), {}});
    }
    ListenersLife& life = listener.lives.back();
    life.attempts.push_back(&attempt);
    for (const SequenceRange numbers : attempt.served.all()) life.got.add(numbers);
    if (attempt.brought_state()) life.got.add({1, attempt.as_of});
}

// Whose a book is: of the user that the line names, or of the only listener there is.
Listener* listener_behind(const Said& said, std::vector<Listener>& listeners, std::size_t askers) {
    const auto named =
        std::find_if(listeners.begin(), listeners.end(), [&](const Listener& it) { return it.user == said.user; });
    if (named != listeners.end()) return &*named;
    if (askers == 1) return &listeners.front();
    if (askers > 1) return nullptr;
    return &listener_named(said.user, listeners);
}

}  // namespace

std::vector<Listener> listeners_of(const std::vector<RecoveryAttempt>& attempts, const Beliefs& beliefs,
                                   const FeedPicture& feed) {
    std::vector<Listener> listeners;
    for (const RecoveryAttempt& attempt : attempts) {
        if (!attempt.user.empty()) take(attempt, listener_named(attempt.user, listeners));
    }
    const std::size_t askers = listeners.size();
    for (const BookBelief& book : beliefs.books) {
        const std::uint64_t sequence = book.sequence.value_or(0);
        if (sequence > feed.highest) continue;
        Listener* listener = listener_behind(book.said, listeners, askers);
        if (listener == nullptr) continue;
        const std::uint64_t told_ns = book.said.t_ns;
        const std::uint64_t ns = told_ns != 0 ? told_ns : feed.came_ns(sequence);
        listener->sightings.push_back({sequence, book.stale, told_ns, ns, book.said.line, book.said.life});
    }
    return listeners;
}

}  // namespace kavo::companion

// The engine and the venue of the model, given the same requests at the same moments. Every operation below runs on
// both and returns how they differ, in words and hexadecimal; an empty text means that nobody outside could tell them
// apart.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/bench.h"
#include "common/clock.h"
#include "engine/engine.h"
#include "feed/dom_feed.h"
#include "model/venue.h"
#include "support/request_maker.h"
#include "support/still_world.h"

namespace kavo::model {

using Faults = decltype(Bench::faults);

class SideBySide {
public:
    explicit SideBySide(const Settings& settings);

    // Moves both clocks of both sides: the steady one by whole milliseconds, the wall clock by as much and `ns` more.
    void let_pass(std::uint64_t ms, std::uint64_t ns = 0);
    // Sets how often each scripted fault comes, and on how many of the next occasions.
    void arm(const Faults& faults);
    void pause(bool paused);

    std::string start_day();
    std::string start_session();
    std::string handle(const Request& request);
    std::string drop(int client);
    std::string cancel_unsolicited();
    std::string tick();
    // Takes what waits for delivery, as a pass of the main loop would.
    void deliver();

    // Compares all books in full, the order of the queues included; the operations look at the touched products only.
    std::string compare_all_books();

    StillWorld world;  // the model's, in which the engine lives as well
    Venue venue;

private:
    bool tell_engine(const Request& request, OutboundMessages& answers);
    std::string compare(const std::string& found);
    std::string compare_outboxes();
    std::string compare_feeds();
    std::string compare_truths();
    std::string compare_counters() const;
    std::string compare_book(std::uint32_t product_id) const;
    std::string compare_queues();
    std::string compare_refreshed_definitions();

    Clock clock_;
    std::vector<std::string> order_truth_;
    std::vector<std::string> book_truth_;
    std::vector<std::string> commentary_lines_;
    Commentary commentary_;
    kavo::Bench bench_;
    DomFeed feed_;
    Generator generator_;
    Engine engine_;
    Books books_from_feed_;
    std::uint64_t compared_sequence_ = 0;
    std::vector<std::uint32_t> touched_products_;
};

}  // namespace kavo::model

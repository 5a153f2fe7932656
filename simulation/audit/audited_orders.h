// Orders under audit: the venue of the model lives through the day that is on the tape, and whatever it says must be
// there. It predicts the synthetic market as well, from the seed.
#pragma once

#include <cstdint>
#include <set>

#include "audit/witness.h"
#include "model/venue.h"

namespace kavo::simulation {

class AuditedOrders {
public:
    AuditedOrders(Witness& witness, AuditedFeed& feed, const Plan& plan);
    AuditedOrders(const AuditedOrders&) = delete;  // the venue's functions point here
    AuditedOrders& operator=(const AuditedOrders&) = delete;

    void start_day();
    void tick();
    // False when the message is no request at all.
    bool handle(int client, const Bytes& message, model::Answers& answers);

    model::Venue venue;

private:
    model::World world_on_tape();
    void expect_uncrossed();

    Witness& witness_;
    AuditedFeed& feed_;
    std::set<std::uint32_t> barred_;  // products whose best offer is, or has been, one at price 0
};

}  // namespace kavo::simulation

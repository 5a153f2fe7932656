// Whether a venue that was started is ready, and the very process that was started. The banner tells that orders are
// taken. A mark that goes to the control port, and is then said on standard error of this process, tells that the port
// is not another's: two venues may have the same one without a word.
#pragma once

#include <string>
#include <string_view>

#include "kavo/basics/loop.h"
#include "kavo/bench/control_words.h"
#include "kavo/bench/venue_output.h"

namespace kavo::companion {

class Readiness {
public:
    Readiness(Loop& loop, VenueOutput& output, ControlWords& control);
    ~Readiness();
    Readiness(const Readiness&) = delete;
    Readiness& operator=(const Readiness&) = delete;

    void hear(std::string_view line);
    bool ready() const { return banner_ && answered_ && marked_; }
    // Why it never will be; empty until that is known.
    const std::string& failure() const { return failure_; }

private:
    void ask();
    void take(const std::string& reply);

    Loop& loop_;
    VenueOutput& output_;
    ControlWords& control_;
    std::string nonce_;
    std::string failure_;
    Loop::Timer again_ = 0;
    bool banner_ = false, asked_ = false, answered_ = false, marked_ = false;
};

}  // namespace kavo::companion

// The signals that end a run in good order: SIGINT, SIGTERM, and SIGHUP unless it was ignored before, as by nohup. All
// others do to kavo what they do to anybody, and the keeper ends the bench when kavo is gone.
#pragma once

#include <functional>

#include "kavo/basics/loop.h"
#include "kavo/bench/descriptor.h"

namespace kavo::companion {

class StopSignals {
public:
    // Calls `stop` from the loop for each. The signals stay blocked after this object is gone, so that one that comes
    // while everything is put away does not cut that short. To be made before there is a second thread.
    StopSignals(Loop& loop, std::function<void(int number)> stop);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    Loop& loop_;
    Descriptor signals_;
};

}  // namespace kavo::companion

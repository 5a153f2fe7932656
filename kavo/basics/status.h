// How a run of kavo ends. Scripts go by these numbers, so they stay.
#pragma once

namespace kavo::companion {

enum class Status {
    right = 0,
    findings = 1,      // the client is wrong
    usage = 2,         // the command line asks for something that there is not
    bench = 3,         // the bench could not do its work, or contradicts itself: says nothing about the client
    inconclusive = 4,  // nothing certain can be said, and the text says whose fault that is
};

}  // namespace kavo::companion

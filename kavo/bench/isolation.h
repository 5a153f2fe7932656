// A network namespace of a bench's own: nobody else's ports, groups or packets.
#pragma once

#include <string>

namespace kavo::companion {

// Takes this process, and all that it starts from now on, into a network of its own, with loopback up and a route for
// multicast. To be called before there is a second thread. How to get in, as words to put before a command. Throws
// Problem when the system does not allow it.
std::string isolate();

}  // namespace kavo::companion

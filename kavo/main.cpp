// kavo: the command around the simulator. Each verb is a file of verbs/.
#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "kavo/basics/status.h"
#include "kavo/verbs/verbs.h"

namespace {

// A standard stream that is closed is the first number that a socket or a file would get, and whatever is said would
// end up there.
void fill_standard_streams() {
    int opened = STDIN_FILENO;
    do {
        opened = open("/dev/null", O_RDWR);
    } while (opened >= STDIN_FILENO && opened <= STDERR_FILENO);
    close(opened);
}

}  // namespace

int main(int count, char** words) {
    fill_standard_streams();
    try {
        return static_cast<int>(kavo::companion::carry_out(count, words));
    } catch (const std::exception& problem) {
        std::cerr << "kavo: " << problem.what() << "\n";
        return static_cast<int>(kavo::companion::Status::bench);
    }
}

// Preloaded into the simulator: takes the time from one poll's return to the next poll, which is what a pass of its
// loop takes, in processor time, so that whatever else runs on the machine is not in it. Whoever starts the simulator
// names the file to which the times go when it ends.
#include <dlfcn.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "timing.h"

namespace {

// How many passes took so many microseconds; the last place is for all longer ones.
class PassTimes {
public:
    ~PassTimes() {
        const char* path = std::getenv("PASS_TIMES");
        std::FILE* file = path != nullptr ? std::fopen(path, "w") : nullptr;
        if (file == nullptr) return;
        for (std::size_t us = 0; us < counts_.size(); ++us) {
            if (counts_[us] != 0) std::fprintf(file, "%zu %llu\n", us, static_cast<unsigned long long>(counts_[us]));
        }
        std::fclose(file);
    }

    void begin() { start_ = kavo::benchmarks::processor_seconds(); }
    void end() {
        if (start_ == 0) return;  // before the first pass
        const double us = (kavo::benchmarks::processor_seconds() - start_) * 1e6;
        ++counts_[std::min(static_cast<std::size_t>(us), counts_.size() - 1)];
    }

private:
    std::array<std::uint64_t, 1'000'000> counts_{};
    double start_ = 0;
};

PassTimes times;

}  // namespace

extern "C" int poll(pollfd* sockets, nfds_t count, int timeout_ms) {
    static const auto real_poll = reinterpret_cast<decltype(&poll)>(dlsym(RTLD_NEXT, "poll"));
    times.end();
    const int ready = real_poll(sockets, count, timeout_ms);
    times.begin();
    return ready;
}

// The engine under random requests, scripted faults, drops and ticks, held against the literal venue after every step:
// the same answers, feed, truth, counters and books, and the book that follows from the feed is the engine's.
#include "harness/engine_story.h"
#include "harness/harness.h"

namespace kavo::fuzz {
namespace {

void tell(ByteView bytes) {
    EngineStory(bytes).tell();
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::tell);
}

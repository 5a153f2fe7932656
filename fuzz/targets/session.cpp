// The session layer with everything behind it, in one process and without sockets: whatever clients send, whenever,
// each of them is sent what stands on paper, and every user's stream is whole in the end.
#include "harness/harness.h"
#include "harness/session_story.h"

namespace kavo::fuzz {
namespace {

void tell(ByteView bytes) {
    SessionStory(bytes).tell();
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::tell);
}

// Why the venue has refused or ended something, in words. No file of the simulator tells that: on the wire it is a
// letter.
#pragma once

#include <string_view>

namespace kavo::companion {

//   type    of the message: "NR", "MR", "CR", "XN"
//   letter  its reason
// Empty when it was accepted, and for a letter that nobody knows.
std::string_view reason_in_words(std::string_view type, char letter);

}  // namespace kavo::companion

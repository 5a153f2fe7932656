// What every scene speaks: a client's requests, and what was answered, as text.
#pragma once

#include "client/requests.h"
#include "client/transcript.h"

namespace kavo::test {

using namespace client;  // a scene is told from the client's side

}  // namespace kavo::test

// What the program says on standard error while something happens, word for word. For tests alone: everything else in
// this folder serves the tools too, and knows nothing of GoogleTest.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "common/commentary.h"

namespace kavo::test {

// For what has something to say.
inline const Commentary standard_error;

template <typename Action>
std::string said_during(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

}  // namespace kavo::test

// The upper part of the page: the verdict, what the run was, and each finding.
#pragma once

#include <string>
#include <string_view>

#include "kavo/report/report.h"

namespace kavo::companion {

std::string verdict_section(const Report& report);

// A text for a page in which the words that do not stand in `other` are marked: two books of twenty levels that differ
// in one look the same to the eye.
std::string with_differences(std::string_view text, std::string_view other);

}  // namespace kavo::companion

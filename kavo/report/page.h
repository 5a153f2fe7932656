// The verdict as a page to look at: one file with everything in it, for a browser without a network.
#pragma once

#include <string>

#include "kavo/journal/journal.h"
#include "kavo/report/report.h"

namespace kavo::companion {

std::string page(const Report& report, const Journal& journal);

}  // namespace kavo::companion

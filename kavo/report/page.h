// The verdict as a page to look at: one file with everything in it, for a browser without a network.
#pragma once

#include <string>
#include <string_view>

#include "kavo/journal/journal.h"
#include "kavo/report/report.h"

namespace kavo::companion {

// page.html as it stood when this was built.
extern const std::string_view page_template;

std::string page(const Report& report, const Journal& journal);

}  // namespace kavo::companion

// What the venue tells whoever runs it, and who hears it.
#include "common/commentary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/said.h"

namespace kavo::test {
namespace {

TEST(Commentary, GoesToStandardError) {
    EXPECT_EQ(said_during([] { Commentary().say("bench: %s at seq %llu\n", "paused", 6ULL); }),
              "bench: paused at seq 6\n");
}

TEST(Commentary, GoesToAListenerInstead) {
    std::vector<std::string> heard;
    const Commentary commentary([&](std::string_view text) { heard.emplace_back(text); });
    EXPECT_EQ(said_during([&] { commentary.say("%d of %d\n", 1, 2); }), "");
    EXPECT_EQ(heard, std::vector<std::string>{"1 of 2\n"});
}

TEST(Commentary, GivesAListenerATextOfAnyLength) {
    std::string heard;
    const Commentary commentary([&](std::string_view text) { heard = text; });
    const std::string long_name(10'000, 'n');
    commentary.say("'%s'\n", long_name.c_str());
    EXPECT_EQ(heard, "'" + long_name + "'\n");
}

}  // namespace
}  // namespace kavo::test

// Where the truth logs go: a file that is appended to, a listener, or nowhere.
#include "common/line_log.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/said.h"

namespace kavo::test {
namespace {

TEST(LineLog, IsOffUntilSomebodyWouldGetALine) {
    LineLog log;
    EXPECT_FALSE(log.is_on());
    log.write("lost\n");
    log.flush();
    EXPECT_FALSE(log.is_on());
}

TEST(LineLog, AppendsToWhatItsFileHolds) {
    const TemporaryFile file;
    std::ofstream(file.path()) << "from an earlier run\n";
    {
        LineLog log;
        log.open(file.path());
        EXPECT_TRUE(log.is_on());
        log.write("from this run\n");
    }
    EXPECT_EQ(file.content(), "from an earlier run\nfrom this run\n");
}

TEST(LineLog, KeepsItsLinesBackUntilItIsFlushed) {
    const TemporaryFile file;
    LineLog log;
    log.open(file.path());
    log.write("one\n");
    EXPECT_EQ(file.content(), "");
    log.flush();
    EXPECT_EQ(file.content(), "one\n");
}

TEST(LineLog, StaysSilentWhenItsFileCannotBeOpened) {
    LineLog log;
    EXPECT_EQ(said_during([&] {
                  log.open("/no_such_folder/truth.jsonl");
                  log.write("lost\n");
                  log.flush();
              }),
              "");
    EXPECT_FALSE(log.is_on());
}

TEST(LineLog, IsOffForGoodWhenAWriteHasFailed) {
    LineLog log;
    log.open("/dev/full");
    EXPECT_TRUE(log.is_on());
    log.write("lost\n");
    log.flush();
    EXPECT_FALSE(log.is_on());
}

TEST(LineLog, GivesItsLinesToAListenerAndNoFurther) {
    const TemporaryFile file;
    std::vector<std::string> heard;
    LineLog log;
    log.open(file.path());
    log.write_to([&](std::string_view line) { heard.emplace_back(line); });
    EXPECT_TRUE(log.is_on());
    log.write("one\n");
    log.write("two\n");
    log.flush();
    EXPECT_EQ(heard, (std::vector<std::string>{"one\n", "two\n"}));
    EXPECT_EQ(file.content(), "");
}

}  // namespace
}  // namespace kavo::test

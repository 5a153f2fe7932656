// Runs of the real programs, judged again by their folders, and told.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/process.h"

namespace kavo::test {

namespace {

struct Ended {
    int status = -1;
    std::string out;
};

// A program with its standard output.
Ended run(const std::string& command) {
    const TemporaryFile out;
    Process process("/bin/sh", {"-c", command + " >" + out.path()});
    Ended ended;
    ended.status = process.wait();
    ended.out = out.content();
    return ended;
}

// A right client buys, sends an order of no shares, and goes.
class RecordedBench : public testing::Test {
protected:
    RecordedBench() {
        test_ =
            run(kavo + " test --venue " KAVO_ME_PATH " --dir " + dir + " --with '--interval-ms 2' -- sh -c \"printf '" +
                "buy b1 100 market\\nbuy b2 0 189.00\\nbuy b3 100 150.00\\nbuy b4 200 market\\n' | " + kavo +
                " trade --user alice\"");
    }

    std::string content(const std::string& name) const { return content_of(dir + "/" + name); }
    void overwrite(const std::string& name, const std::string& content) const {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
    }

    const std::string kavo = KAVO_PATH;
    TemporaryFolder folder_;
    const std::string dir = folder_.path("run");
    Ended test_;
};

TEST_F(RecordedBench, IsRightAgainAndTellsWhatWasRejected) {
    ASSERT_EQ(test_.status, 0) << test_.out;
    EXPECT_EQ(run(kavo + " audit --no-write " + dir).status, 0);

    const Ended rejected = run(kavo + " show " + dir + " --user alice --rejected");
    EXPECT_EQ(rejected.status, 0);
    EXPECT_NE(rejected.out.find("NR b2 rejected 'K' 0@189  (the quantity is 0)\n"), std::string::npos) << rejected.out;
    EXPECT_EQ(run(kavo + " show " + dir + " --user bob --rejected").out, "");
    EXPECT_NE(run(kavo + " show " + dir + " --order b3 --json").out.find("\"feed_number\":"), std::string::npos);
    EXPECT_EQ(run(kavo + " show " + dir + " --feed 5..3").status, 2);
    EXPECT_EQ(run(kavo + " show " + dir + "/nothing").status, 2);
}

TEST_F(RecordedBench, IsConvictedOfAFillThatItsTruthLacks) {
    ASSERT_EQ(test_.status, 0) << test_.out;
    std::string orders = content("orders.jsonl");
    const std::size_t fill = orders.find("\"ev\":\"fill\",\"cl\":\"b4\"");
    ASSERT_NE(fill, std::string::npos);
    const std::size_t begin = orders.rfind('\n', fill) + 1;
    orders.erase(begin, orders.find('\n', fill) + 1 - begin);
    overwrite("orders.jsonl", orders);
    const Ended audit = run(kavo + " audit --no-write " + dir);
    EXPECT_EQ(audit.status, 3);
    EXPECT_NE(audit.out.find("bench.order-line"), std::string::npos) << audit.out;
}

}  // namespace
}  // namespace kavo::test

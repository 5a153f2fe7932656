// Files that cannot be written, and a standard error that nobody hears: the venue goes on trading, and goes on saying
// what it did to those who ask. What a missing folder and a full device do to each file alone is told in tests/system:
// book_truth_test.cpp, snapshot_files_test.cpp and start_stop_test.cpp.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "soak/stage.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// An order truth, a book truth and both snapshots, in this folder.
Stage::Flags all_files_in(const std::string& folder) {
    return {"--truth-out", folder + "/books", "--book-out", folder + "/snapshot", "--bbo-out", folder + "/bbo"};
}

// Trades, beside a market that moves, for long enough that every file is written several times.
void trade_beside_a_market(Stage& stage, const std::string& what) {
    Trader trader(stage.port());
    EXPECT_EQ(stage.control.ask("rate 1"), "ok rate 1\n");
    trader.trade_for(seconds(1));
    trader.answers().report(what);
    EXPECT_LT(trader.answers().percentile(99), milliseconds(sanitized ? 200 : 50));
    EXPECT_EQ(stage.control.ask("mark end"), "ok mark end\n");
    EXPECT_EQ(stage.control.ask("pause"), "ok pause\n");
    const std::string statistics = stage.control.ask("stats");
    EXPECT_EQ(number_behind(" accepts=", statistics), trader.answers().count() / 2) << statistics;
}

TEST(Files, OnADeviceWithoutRoomChangeNothing) {
    const TemporaryFolder folder;
    for (const char* name : {"snapshot.tmp", "bbo.tmp", "books"}) {
        std::filesystem::create_symlink("/dev/full", folder.path(name));
    }
    Stage stage(all_files_in(folder.path(".")), unheard, {{"BENCH_ORDER_TRUTH", "/dev/full"}});
    trade_beside_a_market(stage, "an answer while every file is on a full device");
    stage.stop();
    EXPECT_EQ(content_of(folder.path("snapshot")) + content_of(folder.path("bbo")), "");
}

// A path below a file that is no folder: not even root may write there.
TEST(Files, WhereNothingCanBeCreatedChangeNothing) {
    const TemporaryFile no_folder;
    Stage stage(all_files_in(no_folder.path()), unheard, {{"BENCH_ORDER_TRUTH", no_folder.path() + "/orders"}});
    trade_beside_a_market(stage, "an answer while no file can be created");
    stage.stop();
    EXPECT_EQ(no_folder.content(), "");
}

// A file system with room for a few thousand lines. Snapshots that find no room leave the ones before them whole.
TEST(Files, OnAFileSystemThatFillsUpStayAsFarAsTheyGot) {
    const TemporaryFolder folder;
    const std::string small = folder.path("small");
    std::filesystem::create_directory(small);
    if (mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "only root can mount a file system";
    {
        Stage stage(all_files_in(small), unheard, {{"BENCH_ORDER_TRUTH", small + "/orders"}});
        trade_beside_a_market(stage, "an answer while the file system is full");
        stage.stop();
        EXPECT_LT(std::filesystem::space(small).available, 4096u);
        const std::string snapshot = content_of(small + "/snapshot");
        EXPECT_TRUE(snapshot.starts_with("{\"ts_ns\":") && snapshot.ends_with("}}\n")) << snapshot;
        const std::string bbo = content_of(small + "/bbo");
        EXPECT_TRUE(bbo.starts_with("AAPL ") && bbo.ends_with("\n")) << bbo;
        report("bytes of the order truth", content_of(small + "/orders").size());
        report("bytes of the book truth", content_of(small + "/books").size());
    }
    EXPECT_EQ(umount(small.c_str()), 0);
}

// Whoever has opened the file before still reads all of it; it does not come back.
TEST(Files, ThatAreRemovedWhileTheyAreOpenAreWrittenOn) {
    const TemporaryFolder folder;
    Stage stage(all_files_in(folder.path(".")), unheard, {{"BENCH_ORDER_TRUTH", folder.path("orders")}});
    std::ifstream orders(folder.path("orders"));
    std::ifstream books(folder.path("books"));
    ASSERT_TRUE(orders && books);
    for (const char* name : {"orders", "books", "snapshot", "bbo"}) std::filesystem::remove(folder.path(name));
    trade_beside_a_market(stage, "an answer while the files are removed");
    const std::uint64_t accepts = number_behind(" accepts=", stage.control.ask("stats"));
    stage.stop();
    std::size_t news = 0;
    for (std::string line; std::getline(orders, line);) news += line.find("\"ev\":\"new\"") != std::string::npos;
    EXPECT_EQ(news, accepts);
    bool marked = false;
    for (std::string line; std::getline(books, line);) marked |= line.starts_with("{\"mark\":\"end\",\"seq\":");
    EXPECT_TRUE(marked);
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"bbo", "snapshot"}));  // these are made anew every time
}

// What the venue opens first would take the place of a standard stream that is closed, and be given its text.
TEST(StandardStreams, ThatAreClosedAreNotTakenForSomethingElse) {
    const TemporaryFile orders;
    for (const std::string closed : {"2>&-", "<&- >&- 2>&-"}) {
        std::ofstream(orders.path()).close();
        Stage stage(Stage::Flags{}, "exec \"$@\" " + closed, {{"BENCH_ORDER_TRUTH", orders.path()}});
        trade_beside_a_market(stage, "an answer with " + closed);
        stage.stop();
        for (const std::string& line : orders.lines()) ASSERT_TRUE(line.starts_with("{\"t\":")) << line;
    }
}

// The pipe takes what it can, and then the venue waits for its reader. That is deliberate: it has no place to keep a
// commentary that nobody wants to hear.
TEST(StandardStreams, ThatNobodyReadsStopTheVenueUntilSomebodyDoes) {
    const TemporaryFolder folder;
    const std::string pipe = folder.path("errors");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    Stage stage(Stage::Flags{}, "exec \"$@\" 2>" + pipe);
    WireClient alice(stage.port());
    alice.log_in(login("alice"));
    alice.next(3);
    // A cancel of nothing is worth a line of the commentary.
    std::size_t lines = 0;
    const auto answered = [&](milliseconds longest) {
        std::optional<Bytes> packet;
        do {
            packet = alice.next_packet_of_any_kind(longest);
        } while (packet && packet_text(*packet) == "heartbeat");
        return packet.has_value();
    };
    do {
        alice.send(cancel("b1"));
        ++lines;
    } while (answered(milliseconds(1500)) && lines < 10'000);
    report("bytes that the pipe holds", static_cast<std::size_t>(fcntl(reader, F_GETPIPE_SZ)));
    report("lines of commentary after which the venue stands still", lines);
    EXPECT_LT(lines, 10'000u);
    EXPECT_FALSE(answered(milliseconds(200)));

    std::string text(65'536, ' ');
    while (read(reader, text.data(), text.size()) > 0) continue;
    EXPECT_TRUE(answered(milliseconds(1000)));
    stage.stop();
    close(reader);
}

// The other end of the pipe is closed while the venue runs.
TEST(StandardStreams, ThatNobodyCanReadAnyMoreEndTheVenue) {
    const TemporaryFolder folder;
    const std::string pipe = folder.path("errors");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    Stage stage(Stage::Flags{}, "exec \"$@\" 2>" + pipe);
    close(reader);
    WireClient alice(stage.port());  // is worth a line
    EXPECT_EQ(stage.process.wait(), -SIGPIPE);
}

}  // namespace
}  // namespace kavo::test

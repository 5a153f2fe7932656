#include "kavo/journal/journal.h"

#include <gtest/gtest.h>

#include <fstream>

#include "client/transcript.h"
#include "kavo/audit/audit.h"
#include "kavo/basics/problem.h"
#include "kavo/journal/story.h"
#include "kavo/recorded_run.h"

namespace kavo::companion {

using kavo::test::RecordedRun;

namespace {

// Alice buys what is offered, leaves, comes back for what she has missed, and a receiver asks for the first message.
void trade_a_little(RecordedRun& run) {
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    alice.session.send(client::buy("b1").shares(100).at("190.50"));
    run.step();
    run.leave(alice);
    run.step();
    run.user("alice", 3);
    run.recover(client::Recovery::of_messages(1, 1));
}

std::string lines(const std::vector<WirePacket>& packets) {
    std::vector<std::string> said;
    for (const WirePacket& packet : packets) {
        said.push_back(packet.by_client ? "-> " + std::to_string(packet.bytes.size())
                                        : client::packet_text(packet.bytes));
    }
    return client::joined(said);
}

std::string content_of(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Does with it all that is ever done.
void look_at(const Journal& journal) {
    Verdict verdict;
    audit_bench(journal, verdict, {});
    tell_story(journal, {.all = true}, [](const StoryEntry&) {});
}

std::string story(const Journal& journal, const StoryWishes& wishes) {
    std::vector<std::string> told;
    tell_story(journal, wishes, [&told](const StoryEntry& entry) {
        told.push_back((entry.by_user ? "-> " : "<- ") + entry.what +
                       (entry.why.empty() ? "" : " (" + entry.why + ")"));
    });
    return client::joined(told);
}

void overwrite(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

}  // namespace

TEST(Journal, TellsWhatWasSaidOnEachConnection) {
    RecordedRun run;
    trade_a_little(run);
    const Journal journal = run.journal();
    EXPECT_EQ(journal.defects, std::vector<std::string>{});
    ASSERT_EQ(journal.conversations.size(), 3u);
    const Conversation& first = journal.conversations[0];
    EXPECT_EQ(first.user, "alice");
    EXPECT_EQ(first.service, Service::orders);
    EXPECT_EQ(first.ended_by, EndedBy::client);
    EXPECT_EQ(lines(first.with_client),
              "-> 39 | login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | -> 134 | "
              "3: NR b1 accepted #1040 100@190.5 | 4: O1 b1 #1040 buy 100@190.5 tif D type 1 | "
              "5: E1 b1 100@190 buy removed RC match 1 exec 1");
    EXPECT_EQ(lines(first.with_venue), lines(first.with_client));
    const Conversation& second = journal.conversations[1];
    EXPECT_EQ(second.ended_by, EndedBy::venue);
    EXPECT_EQ(second.number, 2u);
    EXPECT_EQ(journal.conversations[2].service, Service::recovery);
    EXPECT_EQ(journal.conversations[2].with_client.size(), 5u);  // login, request, and their three answers
    EXPECT_LT(first.opened.ns, first.closed.ns);
}

TEST(Journal, HoldsFeedTruthAndLogs) {
    RecordedRun run;
    trade_a_little(run);
    const Journal journal = run.journal();
    EXPECT_GT(journal.feed.size(), 2u);
    ASSERT_EQ(journal.orders.size(), 2u);
    EXPECT_EQ(journal.orders[1].event, "fill");
    EXPECT_EQ(journal.venue.back().text, "[kavo_me] stopped");
    ASSERT_EQ(journal.notes.size(), 1u);
    EXPECT_EQ(journal.notes[0].event, "venue_end");
    BookTruthReader books(journal.book_truth);
    BookLine line;
    std::size_t count = 0;
    while (books.next(line)) ++count;
    EXPECT_EQ(count, 41u);  // 40 quotes, and the trade
}

// What the relay has done to a client shows on its side of the connection alone.
TEST(Journal, KeepsTheTwoSidesOfTheRelayApart) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    run.finish();
    run.write();
    {
        Recording recording(run.folder.wire());
        const Bytes heartbeat{1, 0, '0'};
        const Recording::Ends front{alice.port, run.facts.orders_port};
        const Recording::Ends behind{alice.port, run.facts.orders_behind_port};
        recording.opened(10, front);
        recording.opened(11, behind);
        recording.said(12, behind, false, heartbeat);
        recording.said(13, behind, false, heartbeat);
        recording.said(14, front, false, ByteView(heartbeat).first(2));
        recording.said(15, front, false, ByteView(heartbeat).last(1));
        recording.said(16, front, false, ByteView(heartbeat).first(1));
        recording.closed(17, front, false, true);
        recording.flush();
    }
    const Journal journal = read_journal(run.folder.path);
    ASSERT_EQ(journal.conversations.size(), 1u);
    const Conversation& only = journal.conversations[0];
    EXPECT_EQ(only.with_venue.size(), 2u);
    ASSERT_EQ(only.with_client.size(), 1u);
    EXPECT_EQ(only.with_client[0].begun.ns, 14u);
    EXPECT_EQ(only.with_client[0].at.ns, 15u);
    EXPECT_EQ(only.rest_to_client.size(), 1u);
    EXPECT_EQ(only.ended_by, EndedBy::relay);
    EXPECT_TRUE(only.reset);
}

TEST(Journal, SaysWhatIsMissing) {
    RecordedRun run;
    trade_a_little(run);
    run.write();
    for (const auto& file : {run.folder.wire(), run.folder.order_truth(), run.folder.book_truth(),
                             run.folder.venue_log(), run.folder.log()}) {
        std::filesystem::remove(file);
    }
    EXPECT_EQ(read_journal(run.folder.path).defects.size(), 5u);
    std::filesystem::remove(run.folder.bench());
    EXPECT_THROW(read_journal(run.folder.path), Problem);
}

TEST(Story, TellsWhatWasRejectedAndWhy) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    alice.session.send(client::buy("b1").shares(0).at("190.50"));
    alice.session.send(client::buy("b2").shares(100).at("180.00"));
    alice.session.send(client::buy("b2").shares(100).at("180.00"));
    alice.session.send(client::cancel("b9"));
    run.step();
    const Journal journal = run.journal();
    EXPECT_EQ(story(journal, {.user = "alice", .rejected = true}),
              "<- 3: NR b1 rejected 'K' 0@190.5 (the quantity is 0) | "
              "<- 7: NR b2 rejected 'A' 100@180 (the client order id is that of a live order) | "
              "<- 8: CR xb9 of b9 rejected 'D' (the client has no live order of that id, or the cancel came too late)");
    EXPECT_EQ(story(journal, {.user = "bob"}), "");
}

TEST(Story, TellsTheLifeOfAnOrderUnderAllItsIds) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    alice.session.send(client::buy("b1").shares(100).at("180.00"));
    alice.session.send(client::buy("b7").shares(100).at("180.00"));
    run.step();
    alice.session.send(client::replace("b1", "b2").shares(100).at("181.00"));
    run.step();
    alice.session.send(client::cancel("b2"));
    run.step();
    const std::string life =
        "-> N1 b1 buy 100@180 tif D type 1 product 1 | <- 46: add 1 #1040 B 100@180 | "
        "<- 3: NR b1 accepted #1040 100@180 | <- 4: O1 b1 #1040 buy 100@180 tif D type 1 | "
        "<- 5: P1 b1 #1040 @180 behind | -> M1 b2 for b1 100@181 tif D | <- 48: modify 1 #1040 100@181 lost priority | "
        "<- 9: MR b2 for b1 accepted #1040 leaves 100 | <- 10: MN b2 for b1 #1040 100@181 leaves 100 tif D | "
        "-> CO xb2 of b2 | <- 49: delete 1 #1040 | <- 11: CR xb2 of b2 accepted #1040 | "
        "<- 12: XN b2 #1040 leaves 0 'U' (the client asked for it)";
    const Journal journal = run.journal();
    EXPECT_EQ(story(journal, {.order = "b1"}), life);
    EXPECT_EQ(story(journal, {.order = "b2"}), life);
}

TEST(Story, TellsMessagesOfTheFeedByTheirNumbers) {
    RecordedRun run;
    const Journal journal = run.journal();
    EXPECT_EQ(story(journal, {.feed = {{2, 4}}}), "<- 2: state session 1 | <- 3: definition 1 AAPL Q | <- 4: open 1");
}

// No byte of any file is beyond damage, and none of it throws. Of text that is cut anywhere but behind a line, it is
// said; so it is of a recording that ends within a packet.
TEST(Journal, OutlivesAnyDamage) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    alice.session.send(client::buy("b\n\"1").shares(100).at("190.50"));
    run.step();
    run.write();
    for (const auto& file : {run.folder.wire(), run.folder.order_truth(), run.folder.book_truth(),
                             run.folder.venue_log(), run.folder.log()}) {
        const std::string whole = content_of(file);
        const std::size_t step = whole.size() / 40 + 1;
        for (std::size_t at = 0; at < whole.size(); at += step) {
            std::string flipped = whole;
            flipped[at] = static_cast<char>(flipped[at] ^ (1 << at % 8));
            overwrite(file, flipped);
            EXPECT_NO_THROW(look_at(read_journal(run.folder.path)));
            overwrite(file, whole.substr(0, at));
            const Journal cut = read_journal(run.folder.path);
            EXPECT_NO_THROW(look_at(cut));
            const bool at_line_end = at == 0 || whole[at - 1] == '\n';
            const bool must_say_so = file != run.folder.wire() && !at_line_end;
            EXPECT_TRUE(!must_say_so || !cut.defects.empty()) << file << " " << at;
        }
        overwrite(file, whole);
    }
    EXPECT_EQ(read_journal(run.folder.path).defects, std::vector<std::string>{});
}

}  // namespace kavo::companion

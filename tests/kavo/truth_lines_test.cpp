#include <gtest/gtest.h>

#include "kavo/journal/order_truth.h"

namespace kavo::companion {

namespace {

const std::vector<std::string> symbols{"AAPL", "MSFT"};

// A line as the venue writes it: the texts as they are.
std::string new_line(const std::string& id) {
    return R"({"t":1700000000000000001,"ev":"new","cl":")" + id +
           R"(","oid":1040,"symbol":"AAPL","side":"B","qty":300,"px":189.95,"cum":0,"leaves":0,"last_qty":0,"text":""})"
           "\n";
}

std::string replace_line(const std::string& id, const std::string& original) {
    return R"({"t":1700000000000000002,"ev":"replace","cl":")" + id +
           R"(","oid":1040,"symbol":"MSFT","side":"S","qty":200,"px":410,"cum":100,"leaves":100,"last_qty":0,"text":"","ref":")" +
           original + "\"}\n";
}

std::string ids(const OrderTruth& truth) {
    std::string all;
    for (const OrderLine& line : truth.lines) {
        all += "[" + std::string(line.client_order_id) + "," + std::string(line.original) + "]" +
               (line.ambiguous ? "?" : "");
    }
    return all + (truth.broken ? " broken at " + std::to_string(truth.broken_line) : "");
}

}  // namespace

TEST(OrderTruthLine, TellsEverythingThatStandsInIt) {
    const std::string content =
        R"({"t":17,"ev":"fill","cl":"b1","oid":1040,"symbol":"AAPL","side":"S","qty":300,"px":189.95,"cum":150,"leaves":149,"last_qty":50,"text":""})"
        "\n" +
        replace_line("b2", "b1");
    const OrderTruth truth = read_order_truth(content, symbols);
    ASSERT_EQ(truth.lines.size(), 2u);
    const OrderLine& fill = truth.lines[0];
    EXPECT_EQ(fill.t_ns, 17u);
    EXPECT_EQ(fill.event, "fill");
    EXPECT_EQ(fill.client_order_id, "b1");
    EXPECT_EQ(fill.order_id, 1040u);
    EXPECT_EQ(fill.symbol, "AAPL");
    EXPECT_EQ(fill.side, 'S');
    EXPECT_EQ(fill.quantity, 300u);
    EXPECT_EQ(fill.price, 189.95);
    EXPECT_EQ(fill.executed, 150u);
    EXPECT_EQ(fill.leaves, 149u);
    EXPECT_EQ(fill.last_quantity, 50u);
    EXPECT_EQ(fill.line, 1u);
    EXPECT_EQ(truth.lines[1].original, "b1");
    EXPECT_EQ(truth.lines[1].line, 2u);
    EXPECT_FALSE(truth.broken);
}

TEST(OrderTruthLine, IsReadWhateverItsIdsHold) {
    const std::vector<std::string> hostile{"\"",
                                           "\n",
                                           "\n\n\n",
                                           R"(","oid":7)",
                                           R"(","oid":7,"symbol":")",
                                           "}\n{\"t\":1",
                                           R"("}
{"t":1,"ev":"new)",
                                           "\x01\xff\x80 ",
                                           "",
                                           R"(","ref":"x"})"};
    for (const std::string& id : hostile) {
        ASSERT_LE(id.size(), 20u);
        const std::string news = new_line("a") + new_line(id) + new_line("z");
        const std::string replaces = replace_line("b", id) + replace_line(id, "b");
        EXPECT_EQ(ids(read_order_truth(news, symbols)), "[a,][" + id + ",][z,]");
        if (id.empty()) continue;  // the venue leaves the key out then
        EXPECT_EQ(ids(read_order_truth(replaces, symbols)), "[b," + id + "][" + id + ",b]");
    }
}

TEST(OrderTruthLine, OfAnIdWithLineEndsCountsThemAll) {
    const std::string content = new_line("a\nb\nc") + new_line("d");
    const OrderTruth truth = read_order_truth(content, symbols);
    ASSERT_EQ(truth.lines.size(), 2u);
    EXPECT_EQ(truth.lines[1].line, 4u);
}

// Without the list of symbols, an id that ends as a key does may belong to the symbol as well.
TEST(OrderTruthLine, WithTwoReadingsSaysSo) {
    const std::string doubtful = new_line(R"(","oid":7,"symbol":")");
    const std::string plain = new_line("b1");
    EXPECT_EQ(ids(read_order_truth(doubtful, {})), "[,]?");
    EXPECT_EQ(ids(read_order_truth(plain, {})), "[b1,]");
}

TEST(OrderTruthLine, ThatIsCutShortEndsTheReading) {
    const std::string two = new_line("b1") + new_line("b2");
    for (std::size_t size = 1; size < two.size(); ++size) {
        const OrderTruth truth = read_order_truth(std::string_view(two).substr(0, size), symbols);
        const bool first_is_whole = size >= new_line("b1").size();
        EXPECT_EQ(truth.lines.size(), first_is_whole ? 1u : 0u) << size;
        EXPECT_EQ(truth.broken, size != new_line("b1").size()) << size;
    }
}

TEST(BookTruthLine, TellsTheLevelsOfBothSides) {
    BookTruthReader reader(
        R"({"seq":42,"secid":1,"symbol":"AAPL","bid":[[189.9900,300],[189.9800,4294967296]],"ask":[[190.0101,200]]})"
        "\n"
        R"({"mark":"half"x","seq":42})"
        "\n"
        R"({"seq":44,"secid":2,"symbol":"A"B","bid":[],"ask":[]})"
        "\n");
    BookLine line;
    ASSERT_TRUE(reader.next(line));
    EXPECT_EQ(line.sequence, 42u);
    EXPECT_EQ(line.product_id, 1u);
    EXPECT_EQ(line.symbol, "AAPL");
    EXPECT_EQ(line.bids, (std::vector<BookLevel>{{1'899'900, 300}, {1'899'800, 4'294'967'296}}));
    EXPECT_EQ(line.asks, (std::vector<BookLevel>{{1'900'101, 200}}));
    ASSERT_TRUE(reader.next(line));
    EXPECT_TRUE(line.is_mark);
    EXPECT_EQ(line.mark, "half\"x");
    ASSERT_TRUE(reader.next(line));
    EXPECT_EQ(line.symbol, "A\"B");
    EXPECT_TRUE(line.bids.empty());
    EXPECT_EQ(reader.line(), 3u);
    EXPECT_FALSE(reader.next(line));
    EXPECT_FALSE(reader.broken());
}

TEST(BookTruthLine, ThatIsCutShortIsBroken) {
    const std::string whole = R"({"seq":42,"secid":1,"symbol":"AAPL","bid":[[189.9900,300]],"ask":[]})"
                              "\n";
    for (std::size_t size = 1; size < whole.size(); ++size) {
        BookTruthReader reader(std::string_view(whole).substr(0, size));
        BookLine line;
        EXPECT_FALSE(reader.next(line)) << size;
        EXPECT_TRUE(reader.broken()) << size;
    }
}

}  // namespace kavo::companion

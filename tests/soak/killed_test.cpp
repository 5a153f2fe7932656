// A venue that is killed at any moment leaves truth logs of whole lines, but for the last one, which may be cut: a line
// of the order truth is written by one call, which the kill ends early when it stands between two pages of the file.
#include <csignal>
#include <random>
#include <regex>
#include <set>

#include "soak/stage.h"

namespace kavo::test {
namespace {

using std::chrono::steady_clock;

constexpr int kills = sanitized ? 40 : 200;

const std::regex order_line(
    R"re(\{"t":\d+,"ev":"(new|reject|fill|cancel|cancel_reject|replace|replace_reject)","cl":"[a-z0-9]+","oid":\d+,)re"
    R"re("symbol":"(AAPL)?","side":"[BS ]","qty":\d+,"px":[0-9.]+,"cum":\d+,"leaves":\d+,"last_qty":\d+,)re"
    R"re("text":"[a-z_:]*"(,"ref":"[a-z0-9]+")?\})re");
const std::regex book_line(
    R"re(\{"seq":\d+,"secid":1,"symbol":"AAPL","bid":\[(\[\d+\.\d{4},\d+\],?)*\],"ask":\[(\[\d+\.\d{4},\d+\],?)*\]\})re");

// Everything up to the last line end, as lines; what stands behind it is `rest`.
std::vector<std::string> whole_lines(const std::string& content, std::string& rest) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = content.find('\n'); end != std::string::npos; end = content.find('\n', start)) {
        lines.push_back(content.substr(start, end - start));
        start = end + 1;
    }
    rest = content.substr(start);
    return lines;
}

// True of nothing, and of any part of a line that begins like this, from its first character on.
bool is_beginning(std::string_view rest, std::string_view start) {
    return rest.starts_with(start) || start.starts_with(rest);
}

// One request after the other, without a look at the answers but to keep the connection going.
void request(WireClient& client, int number) {
    const std::string id = "k" + std::to_string(number);
    const std::string before = "k" + std::to_string(number - 1);
    switch (number % 5) {
        case 0: client.send(buy(id).shares(300).at("189.90")); break;
        case 1: client.send(replace(before, id).shares(400).at("189.91")); break;
        case 2: client.send(cancel(before)); break;
        case 3: client.send(sell(id).shares(200).market()); break;
        default: client.send(replace(before, id).at("189.92")); break;
    }
    while (client.next_packet_of_any_kind(std::chrono::milliseconds(0))) continue;
}

TEST(KilledVenue, LeavesWholeLines) {
    std::minstd_rand random(20'240'611);
    std::size_t order_lines = 0;
    std::size_t book_lines = 0;
    std::size_t cut_orders = 0;
    std::size_t cut_books = 0;
    std::set<std::string> events;
    for (int i = 0; i < kills; ++i) {
        const TemporaryFile orders;
        const TemporaryFile books;
        {
            Stage stage({"--interval-ms", "1", "--truth-out", books.path()}, unheard,
                        {{"BENCH_ORDER_TRUTH", orders.path()}});
            WireClient client(stage.port());
            client.log_in(login("killd"));
            client.next(3);
            const auto end = steady_clock::now() + std::chrono::microseconds(random() % 60'000);
            for (int number = 0; steady_clock::now() < end; ++number) request(client, number);
            stage.process.signal(SIGKILL);
            EXPECT_EQ(stage.process.wait(), -SIGKILL);
        }
        std::string rest;
        for (const std::string& line : whole_lines(orders.content(), rest)) {
            ASSERT_TRUE(std::regex_match(line, order_line)) << line;
            const std::size_t event = line.find("\"ev\":\"") + 6;
            events.insert(line.substr(event, line.find('"', event) - event));
            ++order_lines;
        }
        EXPECT_TRUE(is_beginning(rest, "{\"t\":")) << rest;
        cut_orders += !rest.empty();
        for (const std::string& line : whole_lines(books.content(), rest)) {
            ASSERT_TRUE(std::regex_match(line, book_line)) << line;
            ++book_lines;
        }
        EXPECT_TRUE(is_beginning(rest, "{\"seq\":")) << rest;
        cut_books += !rest.empty();
    }
    report("kills", static_cast<std::size_t>(kills));
    report("lines of order truth", order_lines);
    report("lines of book truth", book_lines);
    report("order truths whose last line is cut", cut_orders);
    report("book truths whose last line is cut", cut_books);
    EXPECT_GT(order_lines, static_cast<std::size_t>(kills));
    EXPECT_TRUE(events.contains("new") && events.contains("fill") && events.contains("replace"));
}

}  // namespace
}  // namespace kavo::test

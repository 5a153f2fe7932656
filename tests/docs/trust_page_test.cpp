// What the page on trust says that a client's texts can do, they do: were it stopped one day, the page would have to
// say so.
#include <gtest/gtest.h>

#include "page.h"
#include "session/esesm.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::docs {
namespace {

using client::buy;
using client::cancel;
using test::Venue;
using Lines = std::vector<std::string>;

constexpr const char* trust_md = "trust.md";

// The ids of the table, with the line ends that the page shows as a sign.
Lines hostile_ids() {
    const std::string sign = "⏎";
    Lines ids = words_on(trust_md, "Client order id");
    for (std::string& id : ids) {
        for (std::size_t at = id.find(sign); at != std::string::npos; at = id.find(sign)) {
            id.replace(at, sign.size(), "\n");
        }
    }
    return ids;
}

TEST(TrustPage, KnowsHowLongTextsAre) {
    Pairs widths = pairs_on(trust_md, "Text", "Bytes");
    widths.resize(3);
    const Pairs expected{{"client order id", std::to_string(meo::client_order_id_size)},
                         {"username", std::to_string(esesm::layout::login_request::username.size)},
                         {"type of an unknown message", std::to_string(meo::layout::type.size)}};
    EXPECT_EQ(widths, expected);
}

TEST(TrustPage, ShowsAnIdThatMakesTwoEventsOfOne) {
    Venue venue;
    venue.enter(buy(hostile_ids().at(0)).shares(100).at("189.95"));
    const Lines lines = venue.truth();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].ends_with(",\"ev\":\"new\",\"cl\":\"\"}")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("{\"ev\":\"fill\",\"\":\"\",\"oid\":1000,")) << lines[1];
}

TEST(TrustPage, ShowsAnIdThatNamesAnEventOnceMore) {
    Venue venue;
    venue.enter(buy(hostile_ids().at(1)).shares(100).at("189.95"));
    const Lines lines = venue.truth();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(",\"ev\":\"new\",\"cl\":\"a\",\"ev\":\"fill\",\"x\":\"\",\"oid\":1000,"),
              std::string::npos);
}

TEST(TrustPage, ShowsAnIdThatSpeaksForTheProcess) {
    Venue venue;
    const std::string said = test::said_during([&] { venue.cancel(cancel(hostile_ids().at(2))); });
    EXPECT_NE(said.find("\n[kavo_me] stopped\n"), std::string::npos) << said;
}

}  // namespace
}  // namespace kavo::docs

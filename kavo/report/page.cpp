#include "kavo/report/page.h"

#include "kavo/report/page_data.h"
#include "kavo/report/page_verdict.h"

namespace kavo::companion {

namespace {

// Inside a script element nothing ends it but its own end tag, which no "<" may begin.
std::string for_script(const Json& json) {
    std::string out;
    for (const char letter : json.dump(-1, ' ', true, Json::error_handler_t::replace)) {
        out += letter == '<' ? std::string("\\u003c") : std::string(1, letter);
    }
    return out;
}

std::string data_of(const Report& report, const Journal& journal) {
    const Beliefs beliefs = read_beliefs(journal.folder).value_or(Beliefs{});
    const FeedPicture feed = picture_of_feed(journal, feed_circumstances(journal));
    const Picture picture{report, journal, beliefs, feed};
    LeftOut left_out;
    Json data{{"length_ms", picture.ms(report.ended_ns)}, {"feed", feed_points(picture)}};
    data["spans"] = gap_spans(picture);
    data["lanes"] = run_events(picture);
    data["orders"] = order_lives(picture, left_out);
    data["books"] = book_histories(picture, left_out);
    data["told_until"] = book_findings_told_until(picture);
    data["left_out"] = left_out;
    return for_script(data);
}

}  // namespace

std::string page(const Report& report, const Journal& journal) {
    std::string out;
    std::string_view left = page_template;
    while (!left.empty()) {
        const auto mark = left.find("{{");
        out += left.substr(0, mark);
        if (mark == std::string_view::npos) break;
        left.remove_prefix(mark + 2);
        const std::string_view name = left.substr(0, left.find("}}"));
        left.remove_prefix(name.size() + 2);
        if (name == "title") out += "kavo: " + std::string(status_word(report.verdict.status()));
        if (name == "verdict") out += verdict_section(report);
        if (name == "data") out += data_of(report, journal);
    }
    return out;
}

}  // namespace kavo::companion

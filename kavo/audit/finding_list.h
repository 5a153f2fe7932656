// Findings on their way into a verdict: how sure they are, and no more of one kind than anybody reads.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "kavo/audit/feed_circumstances.h"
#include "kavo/audit/finding.h"
#include "kavo/audit/wording.h"

namespace kavo::companion {

class FindingList {
public:
    FindingList(const Journal& journal, const FeedCircumstances& around, Verdict& verdict)
        : journal_(journal), around_(around), verdict_(verdict) {}

    // A finding of content, which needs no clock. What is missing of the recording makes it inconclusive.
    void content(Finding finding);
    // A finding that rests on what the client must have had, or done, between two moments: a machine that was late
    // there makes it inconclusive.
    void timed(Finding finding, std::uint64_t from_ns, std::uint64_t to_ns);
    // Whatever else speaks for the client, in words.
    void doubtful(Finding finding, const std::string& because);
    void remark(Finding finding);
    // Tells how many there were beyond those that were told.
    void finish();

    std::string time(std::uint64_t ns) const;  // "+0.412 s" since the bench was started

private:
    void add(Finding finding);

    static constexpr unsigned most_of_a_kind = 10;

    const Journal& journal_;
    const FeedCircumstances& around_;
    Verdict& verdict_;
    struct Kind {
        unsigned told = 0;
        Finding last;
    };
    std::map<std::pair<std::string_view, std::string>, Kind> kinds_;  // rule and user
};

}  // namespace kavo::companion

// What a right bench does. Each rule is a contradiction that no client can bring about, so whatever breaks one acquits
// the client; what the machine or the recording may have done instead is no contradiction.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "kavo/audit/finding.h"

namespace kavo::companion {

namespace bench_rule {
extern const Rule& book_line;
extern const Rule& counter;
extern const Rule& fault_line;
extern const Rule& feed_heartbeat;
extern const Rule& feed_message;
extern const Rule& feed_number;
extern const Rule& order_life;
extern const Rule& order_line;
extern const Rule& recording;
extern const Rule& recovery;
extern const Rule& relay;
extern const Rule& stream;
extern const Rule& trade;
}  // namespace bench_rule

std::span<const Rule> bench_rules();

// Gathers what is found about the bench. One slip may contradict everything behind it, so of each rule only the first
// are kept, and the last of these says how many there were.
class BenchFindings {
public:
    static constexpr std::size_t most_of_a_rule = 10;

    explicit BenchFindings(Verdict& verdict) : verdict_(verdict) {}

    void contradiction(const Rule& rule, Finding finding) { add(rule, Grade::bench, std::move(finding)); }
    // It would be one, but something else may have caused it, which `because` names.
    void doubt(const Rule& rule, Finding finding) { add(rule, Grade::inconclusive, std::move(finding)); }
    // The first, when nothing may have caused it; the second, when `otherwise` says what may have.
    void contradiction_unless(const std::string& otherwise, const Rule& rule, Finding finding);
    void finish();

private:
    void add(const Rule& rule, Grade grade, Finding finding);

    struct Kept {
        std::size_t count = 0;
        std::size_t last = 0;  // in the findings
    };
    Verdict& verdict_;
    std::map<std::pair<const Rule*, Grade>, Kept> kept_;
};

}  // namespace kavo::companion

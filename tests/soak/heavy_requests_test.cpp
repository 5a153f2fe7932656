// Requests that are cheap to send and could be dear to carry out: books and ids made so that a search meets all that
// is there.
#include <array>
#include <cstring>

#include "soak/bystanders.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds longest_wait{100};

// A client who never looks at the answers.
class Sender {
public:
    explicit Sender(const Stage& stage) : stage_(stage), peer_(stage.port(), Peer::little) {
        peer_.log_in(login("heavy"));
    }

    // Sends two thousand at a time: by then the counter of the bench, which was at 0, has come so far as those before.
    void carry_out(const std::vector<Bytes>& requests, std::string_view counter) {
        constexpr std::size_t batch = 2000;
        Bytes packets;
        for (std::size_t i = 1; i <= requests.size(); ++i) {
            append(packets, framed(requests[i - 1]));
            if (i % batch != 0 && i != requests.size()) continue;
            peer_.pour_all(packets);
            stage_.await_counter(counter, i, peer_);
            packets.clear();
        }
    }

private:
    const Stage& stage_;
    Peer peer_;
};

// Each asks for more than there is, at any price, so that nothing but the sum of all levels tells that it cannot trade.
TEST(HeavyRequests, ForMoreThanAHundredThousandLevelsHoldKeepNobodyWaiting) {
    constexpr std::size_t levels = sanitized ? 10'000 : 100'000;
    Stage stage({"--quiet", "--max-order-size", "1000000"});
    std::vector<Bytes> far_away;
    for (std::size_t i = 0; i < levels; ++i) {
        NewOrder order = sell("s" + std::to_string(i)).shares(1);
        order.price = wire_price("1000.00") + i * wire_price("0.01");
        far_away.push_back(order.bytes());
    }
    std::vector<Bytes> too_large;
    for (int i = 0; i < 500; ++i) {
        too_large.push_back(buy("f" + std::to_string(i)).shares(1'000'000).market().all_or_nothing().bytes());
    }
    Sender sender(stage);
    Asker asker(stage.port());
    sender.carry_out(far_away, " accepts=");
    sender.carry_out(too_large, " cancels=");
    expect_answers_within(longest_wait, asker, "an answer beside them");
    stage.stop();
}

// What the words of an id are multiplied by in a hash that everybody knows, which adds them up then.
constexpr std::array<std::uint64_t, 3> factors = {0x9E3779B97F4A7C15, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9};

// Times `factor`, which is odd, it is 1. Each step doubles the bits that are right.
constexpr std::uint64_t inverse_of(std::uint64_t factor) {
    std::uint64_t inverse = factor;
    for (int i = 0; i < 5; ++i) inverse *= 2 - factor * inverse;
    return inverse;
}
static_assert(factors[0] * inverse_of(factors[0]) == 1);

// Client order ids with one and the same sum.
class AlikeIds {
public:
    std::string next() {
        while (true) {
            std::array<std::uint64_t, 3> words{};
            const std::string number = std::to_string(10'000'000 + made_++);
            std::memcpy(&words[1], number.data(), sizeof words[1]);
            std::memcpy(&words[2], "kavo", 4);
            words[0] = (sum - words[1] * factors[1] - words[2] * factors[2]) * inverse_of(factors[0]);
            std::string id(20, '\0');
            std::memcpy(id.data(), words.data(), id.size());
            if (id.find('\0') == std::string::npos) return id;
        }
    }

private:
    static constexpr std::uint64_t sum = 1;

    std::size_t made_ = 0;
};

TEST(HeavyRequests, WithIdsThatAreMadeToBeAlikeKeepNobodyWaiting) {
    constexpr std::size_t orders = sanitized ? 6'000 : 60'000;
    Stage stage({"--quiet"});
    AlikeIds ids;
    std::vector<Bytes> entries;
    std::vector<Bytes> cancels;
    for (std::size_t i = 0; i < orders; ++i) {
        const std::string id = ids.next();
        entries.push_back(buy(id).at("1.00").bytes());
        cancels.push_back(cancel(id).bytes());
    }
    Sender sender(stage);
    Asker asker(stage.port());
    sender.carry_out(entries, " accepts=");
    sender.carry_out(cancels, " cancels=");
    expect_answers_within(longest_wait, asker, "an answer beside them");
    stage.stop();
}

}  // namespace
}  // namespace kavo::test

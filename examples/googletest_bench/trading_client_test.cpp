// A trading client beside a bench of its own, as a test. Name your own client in the variable CLIENT.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "kavo_bench.h"

using namespace std::chrono_literals;

namespace {

struct TradingClient : kavo_bench::BenchTest {
    static std::string client() {
        const char* named = std::getenv("CLIENT");
        return named != nullptr ? named : "trading_client";
    }
};

TEST_F(TradingClient, TradesAndIsRightAboutIt) {
    kavo_bench::Bench& bench = open("", {"--seed", "7"});
    bench.start({client(), "--seconds", "1", "--orders", "12"});
    EXPECT_EQ(bench.wait(30s), 0);
}

TEST_F(TradingClient, ComesBackWhenItIsDropped) {
    kavo_bench::Bench& bench = open("reject_every=3,disconnect_after=5");
    bench.start({client(), "--seconds", "1", "--orders", "12"});
    EXPECT_EQ(bench.wait(30s), 0);
    EXPECT_NE(bench.control("stats").find("logins=2"), std::string::npos);
}

}  // namespace

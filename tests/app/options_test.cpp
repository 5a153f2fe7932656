#include "app/options.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/said.h"

namespace kavo::test {
namespace {

using Arguments = std::vector<const char*>;

Options parsed(const Arguments& arguments) {
    const std::optional<Options> options = parse_options(arguments, standard_error);
    EXPECT_TRUE(options.has_value());
    return options.value_or(Options{});
}

// What is said about arguments that end the process with status 2.
std::string refusal(const Arguments& arguments) {
    return said_during([&] { EXPECT_FALSE(parse_options(arguments, standard_error).has_value()); });
}

// The text of the conversion error that ends the process, and which of the two it is.
template <typename Action>
std::string thrown(Action action) {
    try {
        action();
    } catch (const std::invalid_argument& error) {
        return std::string("invalid argument: ") + error.what();
    } catch (const std::out_of_range& error) {
        return std::string("out of range: ") + error.what();
    }
    return "nothing";
}
std::string thrown_at(const Arguments& arguments) {
    return thrown([&] { parse_options(arguments, standard_error); });
}

TEST(Options, HaveDefaults) {
    const Options options = parsed({});
    EXPECT_EQ(options.mcast, "233.54.28.111");
    EXPECT_EQ(options.port, 25377);
    EXPECT_EQ(options.iface, "127.0.0.1");
    EXPECT_EQ(options.retrans_port, 25379);
    EXPECT_EQ(options.meo_port, 28700);
    EXPECT_EQ(options.session, 1);
    EXPECT_EQ(options.symbols, "AAPL:190.00,MSFT:410.00,SPY:520.00");
    EXPECT_EQ(options.interval_ms, 40);
    EXPECT_EQ(options.step_bps, 0.8);
    EXPECT_EQ(options.touch_hit, 0.15);
    EXPECT_EQ(options.book_out, "");
    EXPECT_EQ(options.bbo_out, "");
    EXPECT_EQ(options.seed, 42u);
    EXPECT_EQ(options.drop_every, 0u);
    EXPECT_EQ(options.drop_burst, "");
    EXPECT_EQ(options.dup_every, 0u);
    EXPECT_EQ(options.reorder_every, 0u);
    EXPECT_EQ(options.truth_out, "");
    EXPECT_EQ(options.control_port, 0);
    EXPECT_FALSE(options.acod);
    EXPECT_EQ(options.max_order_size, 25'000u);
    EXPECT_FALSE(options.quiet);
}

TEST(Options, AreSetByTheirFlags) {
    Options options;
    EXPECT_EQ(said_during([&] {
                  options = parsed({"--mcast",
                                    "239.1.2.3",
                                    "--port",
                                    "1001",
                                    "--iface",
                                    "10.0.0.1",
                                    "--retrans-port",
                                    "1002",
                                    "--meo-port",
                                    "1003",
                                    "--session",
                                    "7",
                                    "--symbols",
                                    "IBM:1.5",
                                    "--interval-ms",
                                    "250",
                                    "--step-bps",
                                    "1.25",
                                    "--touch-hit",
                                    "0.5",
                                    "--book-out",
                                    "book.json",
                                    "--bbo-out",
                                    "bbo.txt",
                                    "--seed",
                                    "11",
                                    "--drop-every",
                                    "12",
                                    "--drop-burst",
                                    "13:14",
                                    "--dup-every",
                                    "15",
                                    "--reorder-every",
                                    "16",
                                    "--truth-out",
                                    "truth.json",
                                    "--control-port",
                                    "1004",
                                    "--acod",
                                    "--max-order-size",
                                    "17",
                                    "--quiet"});
              }),
              "");
    EXPECT_EQ(options.mcast, "239.1.2.3");
    EXPECT_EQ(options.port, 1001);
    EXPECT_EQ(options.iface, "10.0.0.1");
    EXPECT_EQ(options.retrans_port, 1002);
    EXPECT_EQ(options.meo_port, 1003);
    EXPECT_EQ(options.session, 7);
    EXPECT_EQ(options.symbols, "IBM:1.5");
    EXPECT_EQ(options.interval_ms, 250);
    EXPECT_EQ(options.step_bps, 1.25);
    EXPECT_EQ(options.touch_hit, 0.5);
    EXPECT_EQ(options.book_out, "book.json");
    EXPECT_EQ(options.bbo_out, "bbo.txt");
    EXPECT_EQ(options.seed, 11u);
    EXPECT_EQ(options.drop_every, 12u);
    EXPECT_EQ(options.drop_burst, "13:14");
    EXPECT_EQ(options.dup_every, 15u);
    EXPECT_EQ(options.reorder_every, 16u);
    EXPECT_EQ(options.truth_out, "truth.json");
    EXPECT_EQ(options.control_port, 1004);
    EXPECT_TRUE(options.acod);
    EXPECT_EQ(options.max_order_size, 17u);
    EXPECT_TRUE(options.quiet);
}

TEST(Options, TakeTheLaterOfTwoValues) {
    EXPECT_EQ(parsed({"--seed", "1", "--port", "5", "--seed", "2"}).seed, 2u);
    EXPECT_EQ(parsed({"--session", "0", "--session", "5"}).session, 5);
    EXPECT_TRUE(parsed({"--acod", "--acod"}).acod);
}

TEST(Options, TakeWhateverFollowsAFlagForItsValue) {
    const Options options = parsed({"--iface", "--quiet"});
    EXPECT_EQ(options.iface, "--quiet");
    EXPECT_FALSE(options.quiet);
    EXPECT_EQ(parsed({"--symbols", ""}).symbols, "");
}

TEST(Options, EndWithAFlagThatNeedsNoValue) {
    EXPECT_TRUE(parsed({"--quiet"}).quiet);
    EXPECT_TRUE(parsed({"--port", "5", "--acod"}).acod);
}

TEST(Options, NeedAValueWhereTheFlagTakesOne) {
    for (const char* flag : {"--mcast",     "--port",          "--iface",       "--retrans-port", "--meo-port",
                             "--session",   "--symbols",       "--interval-ms", "--step-bps",     "--touch-hit",
                             "--book-out",  "--bbo-out",       "--seed",        "--drop-every",   "--drop-burst",
                             "--dup-every", "--reorder-every", "--truth-out",   "--control-port", "--max-order-size"}) {
        EXPECT_EQ(refusal({"--quiet", flag}), std::string(flag) + " needs a value\n");
    }
}

TEST(Options, MayBeNothingButTheKnownFlags) {
    EXPECT_EQ(refusal({"--verbose"}), "unknown flag --verbose\n");
    EXPECT_EQ(refusal({"--port=5"}), "unknown flag --port=5\n");
    EXPECT_EQ(refusal({"--por", "5"}), "unknown flag --por\n");
    EXPECT_EQ(refusal({"--PORT", "5"}), "unknown flag --PORT\n");
    EXPECT_EQ(refusal({"-p", "5"}), "unknown flag -p\n");
    EXPECT_EQ(refusal({"--quiet", "yes"}), "unknown flag yes\n");
    EXPECT_EQ(refusal({""}), "unknown flag \n");
    EXPECT_EQ(refusal({"--seed", "5", "--verbose", "--wrong"}), "unknown flag --verbose\n");
}

TEST(Options, HaveASessionThatFitsItsPacketField) {
    const std::string refused =
        "--session must be 1..255 (MACH \xC2\xA7"
        "2.2.1)\n";
    for (const char* session : {"0", "256", "-1", "257", "2147483647"}) {
        EXPECT_EQ(refusal({"--session", session}), refused) << session;
    }
    EXPECT_EQ(parsed({"--session", "1"}).session, 1);
    EXPECT_EQ(parsed({"--session", "255"}).session, 255);
}

// The first thing that is wrong, from the left, decides how the process ends; the session is looked at last.
TEST(Options, AreReadFromTheLeft) {
    EXPECT_EQ(thrown_at({"--port", "x", "--verbose"}), "invalid argument: stoi");
    EXPECT_EQ(refusal({"--verbose", "--port", "x"}), "unknown flag --verbose\n");
    EXPECT_EQ(refusal({"--session", "0", "--verbose"}), "unknown flag --verbose\n");
    EXPECT_EQ(refusal({"--session", "0", "--port"}), "--port needs a value\n");
    EXPECT_EQ(thrown_at({"--session", "0", "--port", "x"}), "invalid argument: stoi");
}

TEST(Options, KeepPortsToSixteenBits) {
    EXPECT_EQ(parsed({"--port", "65535"}).port, 65535);
    EXPECT_EQ(parsed({"--port", "65536"}).port, 0);
    EXPECT_EQ(parsed({"--port", "70000"}).port, 4464);
    EXPECT_EQ(parsed({"--retrans-port", "70000"}).retrans_port, 4464);
    EXPECT_EQ(parsed({"--meo-port", "70000"}).meo_port, 4464);
    EXPECT_EQ(parsed({"--control-port", "70000"}).control_port, 4464);
    EXPECT_EQ(parsed({"--port", "-1"}).port, 65535);
}

TEST(Options, KeepCountsToThirtyTwoBits) {
    EXPECT_EQ(parsed({"--seed", "4294967295"}).seed, 4'294'967'295u);
    EXPECT_EQ(parsed({"--seed", "4294967297"}).seed, 1u);
    EXPECT_EQ(parsed({"--seed", "-1"}).seed, 4'294'967'295u);
    EXPECT_EQ(parsed({"--drop-every", "-1"}).drop_every, 4'294'967'295u);
    EXPECT_EQ(parsed({"--dup-every", "-1"}).dup_every, 4'294'967'295u);
    EXPECT_EQ(parsed({"--reorder-every", "-1"}).reorder_every, 4'294'967'295u);
    EXPECT_EQ(parsed({"--max-order-size", "-1"}).max_order_size, 4'294'967'295u);
}

TEST(Options, ReadNumbersAsTheStandardConversionsDo) {
    EXPECT_EQ(parsed({"--interval-ms", " 7"}).interval_ms, 7);
    EXPECT_EQ(parsed({"--interval-ms", "+7"}).interval_ms, 7);
    EXPECT_EQ(parsed({"--interval-ms", "-7"}).interval_ms, -7);
    EXPECT_EQ(parsed({"--interval-ms", "7ms"}).interval_ms, 7);
    EXPECT_EQ(parsed({"--interval-ms", "7.9"}).interval_ms, 7);
    EXPECT_EQ(parsed({"--interval-ms", "0x10"}).interval_ms, 0);
    EXPECT_EQ(parsed({"--seed", " 7 8"}).seed, 7u);
    EXPECT_EQ(parsed({"--step-bps", " -2.5e1x"}).step_bps, -25.0);
    EXPECT_EQ(parsed({"--touch-hit", "1"}).touch_hit, 1.0);
}

TEST(Options, ThrowAtANumberThatIsNone) {
    for (const char* flag :
         {"--port", "--retrans-port", "--meo-port", "--control-port", "--session", "--interval-ms"}) {
        EXPECT_EQ(thrown_at({flag, "abc"}), "invalid argument: stoi") << flag;
        EXPECT_EQ(thrown_at({flag, ""}), "invalid argument: stoi") << flag;
        EXPECT_EQ(thrown_at({flag, "2147483648"}), "out of range: stoi") << flag;
    }
    for (const char* flag : {"--seed", "--drop-every", "--dup-every", "--reorder-every", "--max-order-size"}) {
        EXPECT_EQ(thrown_at({flag, "abc"}), "invalid argument: stoul") << flag;
        EXPECT_EQ(thrown_at({flag, ""}), "invalid argument: stoul") << flag;
        EXPECT_EQ(thrown_at({flag, "18446744073709551616"}), "out of range: stoul") << flag;
    }
    for (const char* flag : {"--step-bps", "--touch-hit"}) {
        EXPECT_EQ(thrown_at({flag, "abc"}), "invalid argument: stod") << flag;
        EXPECT_EQ(thrown_at({flag, ""}), "invalid argument: stod") << flag;
        EXPECT_EQ(thrown_at({flag, "1e999"}), "out of range: stod") << flag;
    }
}

TEST(Options, KeepTheSymbolsAndTheBurstAsTheyAreWritten) {
    EXPECT_EQ(parsed({"--symbols", "A:x"}).symbols, "A:x");
    EXPECT_EQ(parsed({"--drop-burst", ":"}).drop_burst, ":");
}

// "AAPL@190,MSFT@410" for what a list of symbols gives.
std::string symbols(const std::string& text) {
    std::string items;
    for (const SymbolItem& item : parse_symbols(text)) {
        items += (items.empty() ? "" : ",") + item.name + "@" + std::to_string(item.reference);
    }
    return items;
}

TEST(SymbolList, GivesEachItemInItsOrder) {
    EXPECT_EQ(symbols("AAPL:190.00,MSFT:410.00,SPY:520.00"), "AAPL@190.000000,MSFT@410.000000,SPY@520.000000");
    EXPECT_EQ(symbols("B:2,A:1,B:3"), "B@2.000000,A@1.000000,B@3.000000");
}

TEST(SymbolList, MayBeEmpty) {
    EXPECT_TRUE(parse_symbols("").empty());
}

TEST(SymbolList, PricesAnItemWithoutAColonAtAHundred) {
    EXPECT_EQ(symbols("AAPL"), "AAPL@100.000000");
    EXPECT_EQ(symbols("AAPL,MSFT:5"), "AAPL@100.000000,MSFT@5.000000");
}

TEST(SymbolList, TakesAnEmptyItemForANamelessSymbol) {
    EXPECT_EQ(symbols(",AAPL:5"), "@100.000000,AAPL@5.000000");
    EXPECT_EQ(symbols("A:1,,B:2"), "A@1.000000,@100.000000,B@2.000000");
    EXPECT_EQ(symbols(","), "@100.000000");
    EXPECT_EQ(symbols(":7"), "@7.000000");
}

TEST(SymbolList, AddsNothingForACommaAtItsEnd) {
    EXPECT_EQ(symbols("AAPL:5,"), "AAPL@5.000000");
    EXPECT_EQ(symbols("AAPL:5,,"), "AAPL@5.000000,@100.000000");
}

TEST(SymbolList, EndsANameAtTheFirstColon) {
    EXPECT_EQ(symbols("A:1:2"), "A@1.000000");
    EXPECT_EQ(symbols(" A : 1.5x"), " A @1.500000");
}

TEST(SymbolList, ThrowsAtAPriceThatIsNone) {
    EXPECT_EQ(thrown([] { parse_symbols("A:"); }), "invalid argument: stod");
    EXPECT_EQ(thrown([] { parse_symbols("A:1,B:x"); }), "invalid argument: stod");
    EXPECT_EQ(thrown([] { parse_symbols("A:1e999"); }), "out of range: stod");
}

// "start x count" for what a burst text gives.
std::string burst(const std::string& text) {
    const DropBurst burst = parse_drop_burst(text);
    return std::to_string(burst.start) + " x " + std::to_string(burst.count);
}

TEST(DropBurstText, NamesAStartAndACount) {
    EXPECT_EQ(burst("500:20"), "500 x 20");
    EXPECT_EQ(burst("500"), "500 x 1");
    EXPECT_EQ(burst("500:0"), "500 x 0");
    EXPECT_EQ(burst("500:20:30"), "500 x 20");
    EXPECT_EQ(burst(" 5x: 2y"), "5 x 2");
}

TEST(DropBurstText, MayBeEmpty) {
    EXPECT_EQ(burst(""), "0 x 0");
}

TEST(DropBurstText, KeepsTheStartToSixtyFourBitsAndTheCountToThirtyTwo) {
    EXPECT_EQ(burst("18446744073709551615:4294967295"), "18446744073709551615 x 4294967295");
    EXPECT_EQ(burst("4294967296:4294967297"), "4294967296 x 1");
    EXPECT_EQ(burst("-1:-1"), "18446744073709551615 x 4294967295");
}

TEST(DropBurstText, ThrowsAtANumberThatIsNone) {
    EXPECT_EQ(thrown([] { parse_drop_burst(":"); }), "invalid argument: stoull");
    EXPECT_EQ(thrown([] { parse_drop_burst(":20"); }), "invalid argument: stoull");
    EXPECT_EQ(thrown([] { parse_drop_burst("x"); }), "invalid argument: stoull");
    EXPECT_EQ(thrown([] { parse_drop_burst("500:"); }), "invalid argument: stoul");
    EXPECT_EQ(thrown([] { parse_drop_burst("500:x"); }), "invalid argument: stoul");
    EXPECT_EQ(thrown([] { parse_drop_burst("18446744073709551616"); }), "out of range: stoull");
    EXPECT_EQ(thrown([] { parse_drop_burst("1:18446744073709551616"); }), "out of range: stoul");
}

TEST(Banner, ShowsTheDefaults) {
    EXPECT_EQ(said_during([] { say_banner(Options{}, standard_error); }),
              "[kavo_me] DoM/MACH 233.54.28.111:25377 (iface 127.0.0.1, session 1, retransmission ESesM/TCP :25379) "
              "\xC2\xB7 MEO/ESesM :28700 \xC2\xB7 ACOD do not cancel (venue default) \xC2\xB7 max order size 25000 "
              "\xC2\xB7 AAPL:190.00,MSFT:410.00,SPY:520.00\n");
}

TEST(Banner, ShowsWhatWasSet) {
    const Options options =
        parsed({"--mcast", "239.1.2.3", "--port", "70000", "--iface", "none", "--session", "255", "--retrans-port", "0",
                "--meo-port", "65535", "--acod", "--max-order-size", "-1", "--symbols", ",A:1,"});
    EXPECT_EQ(said_during([&] { say_banner(options, standard_error); }),
              "[kavo_me] DoM/MACH 239.1.2.3:4464 (iface none, session 255, retransmission ESesM/TCP :0) "
              "\xC2\xB7 MEO/ESesM :65535 \xC2\xB7 ACOD cancel all open orders \xC2\xB7 max order size 4294967295 "
              "\xC2\xB7 ,A:1,\n");
}

}  // namespace
}  // namespace kavo::test

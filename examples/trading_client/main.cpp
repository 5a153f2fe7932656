// A trading client. It trades for a while, and tells what it believes; see --help.
#include <cstdio>
#include <exception>

#include "settings.h"
#include "trading_client.h"

int main(int count, char** words) {
    try {
        const auto settings = trading::read_settings(count, words);
        if (!settings) return 0;
        return trading::TradingClient(*settings).run() ? 0 : 1;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "trading_client: %s\n", problem.what());
        return 2;
    }
}

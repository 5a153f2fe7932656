// A moving, two-sided market around each product's reference price, so that a client is never alone. This decides what
// the market does next; the engine carries it out. The order of the draws is part of the contract: one seed gives one
// market.
#pragma once

#include <cstdint>
#include <optional>

#include "engine/book.h"
#include "engine/draws.h"
#include "engine/settings.h"

namespace kavo {

class SyntheticMarket {
public:
    static constexpr unsigned seeding_quotes = 40;  // of each product, when the day starts
    static constexpr unsigned quotes_a_tick = 3;

    SyntheticMarket(Generator& generator, const EngineSettings& settings)
        : interval_ms(settings.interval_ms),
          generator_(generator),
          step_bps_(settings.step_bps),
          touch_hit_(settings.touch_hit) {}

    bool paused = false;       // the market stands still
    std::int32_t interval_ms;  // between two ticks; 0 ticks on every pass, a negative one never

    enum class QuoteSide { random, buy, sell };
    // An order to be entered: a quote, or one without a price that takes what is there.
    struct Intent {
        bool buy;
        Price price;  // 0 goes anywhere
        std::uint32_t quantity;
    };

    // A fresh source of deviates for each tick: one that is kept is used by the next product, and dropped at the end of
    // the tick.
    NormalDraws begin_tick() { return NormalDraws(generator_); }
    void move_reference(Product& product, NormalDraws& normal) const;
    // How many of its orders the market looks at, to withdraw some of them.
    static unsigned withdrawals(const Product& product);
    // One that goes, or nothing: far from the middle a quote always goes, near it half of the time.
    Order* withdrawal(const Product& product);
    Intent quote(const Product& product, QuoteSide wanted);
    static bool is_thin(const BookSide& side);
    // Takes what is best on one side, and the levels behind it if that is not enough.
    std::optional<Intent> hit();

private:
    Generator& generator_;
    double step_bps_;
    double touch_hit_;
};

}  // namespace kavo

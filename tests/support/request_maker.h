// Random order entry, as bytes: the requests of clients who know their trade, of those who do not, and of those who do
// not even know the layout.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/still_world.h"

namespace kavo::model {

struct Request {
    int client = 0;
    Bytes message;
    std::string text;  // for a reader of a failed test
};

class RequestMaker {
public:
    // Prices, ids worth naming and expiry times are taken from the venue and its world as they stand at each request.
    RequestMaker(std::uint64_t seed, const Venue& venue, const StillWorld& world)
        : random_(seed), venue_(venue), world_(world) {}

    Request next();

    // The client in a random seat goes away; whoever sits there next has a new handle. Returns the one that went.
    int drop_client();

    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    bool one_in(std::uint64_t n) { return below(n) == 0; }

    // Wire prices so large that their low 32 bits, counted in ten-thousandths, land near the market, or are nothing.
    bool wraps_prices = false;

private:
    Request new_order();
    Request replace();
    Request cancel();

    Bytes random_bytes(std::size_t size);
    void put_id(Bytes& message, std::size_t at, const std::string& id);
    void put_echo_texts(Bytes& message);
    void spoil(Request& request);
    std::string any_id(std::size_t seat);
    std::string odd_id();
    std::string new_id(std::size_t seat);
    std::string id_to_change(std::size_t seat);
    bool is_open_order_of(int owner, const std::string& id) const;
    std::string mpid(std::size_t seat);
    std::uint64_t price_near(std::uint32_t product_id, bool buy);
    std::uint64_t odd_price(std::uint64_t price);
    std::uint32_t size();
    std::uint16_t flags(bool sell);
    char tif();
    std::uint64_t expire_time(char tif);
    template <typename T>
    const T& pick(const std::vector<T>& choices) {
        return choices[below(choices.size())];
    }

    std::mt19937_64 random_;
    const Venue& venue_;
    const StillWorld& world_;
    std::vector<int> seats_{0, 1, 2, 3};  // the handle that sits there now
    int next_handle_ = 4;
};

}  // namespace kavo::model

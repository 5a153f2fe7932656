#include "harness/engine_story.h"

#include <algorithm>
#include <cmath>

#include "harness/harness.h"
#include "model/fields.h"
#include "support/request_maker.h"

namespace kavo::fuzz {

namespace {

using model::Request;

// The usual prices, prices too low for the quotes around them, and one whose cents must be rounded.
const std::array<std::vector<model::Symbol>, 4> symbol_lists{{
    {{"AAPL", 190.00}},
    {{"AAPL", 190.00}, {"PENY", 0.05}, {"SPY", 520.00}},
    {{"PENY", 0.02}},
    {{"ODD", 12.345}, {"", 3.999}},
}};

model::Settings settings_from(Input& input) {
    model::Settings settings;
    settings.symbols = input.pick(symbol_lists);
    settings.session = input.pick(std::array<std::uint8_t, 3>{1, 7, 255});
    settings.acod = input.below(2) == 1;
    settings.max_order_size = input.pick(std::array<std::uint32_t, 4>{25'000, 100, 0xFFFFFFFF, 0});
    settings.step_bps = input.pick(std::array<double, 3>{0.8, 50.0, 0.0});
    settings.touch_hit = input.pick(std::array<double, 3>{0.15, 1.0, 0.0});
    settings.seed = input.number<std::uint16_t>();
    return settings;
}

}  // namespace

EngineStory::EngineStory(ByteView bytes) : input_(bytes), sides_(settings_from(input_)) {}

void EngineStory::tell() {
    check(sides_.start_day());
    check(sides_.start_session());
    while (!input_.empty() && effort_ < most_effort) step();
    check(sides_.compare_all_books());
}

void EngineStory::check(const std::string& differences, std::size_t effort) {
    require_nothing_in(differences);
    effort_ += effort;
    count_step();
}

void EngineStory::step() {
    const std::size_t decision = input_.below(16);
    if (decision < 6) return check(sides_.handle(new_order()));
    if (decision < 8) return check(sides_.handle(replace()));
    if (decision < 10) return check(sides_.handle(cancel()));
    switch (decision) {
        case 10: return check(sides_.handle(any_bytes()));
        case 11: return made_requests();
        case 12: return let_time_pass();
        case 13: return tick();
        case 14: return arm();
        default: return rare_event();
    }
}

Request EngineStory::new_order() {
    const int sender = client();
    model::Bytes message(131, 0);
    model::put_text(message, 0, "N1");
    put_participant(message);
    put_id(message, 14);
    const auto product_id = static_cast<std::uint32_t>(input_.one_in(32) ? input_.byte() : 1 + input_.below(3));
    const char type = input_.pick(std::array<char, 8>{'1', '1', '1', '1', '1', '1', '2', '3'});
    const char tif = input_.pick(std::array<char, 10>{'D', 'D', 'D', 'E', 'R', 'I', 'F', 'F', 'T', 'x'});
    model::put(message, 34, 4, product_id);
    model::put(message, 38, 8, type == '2' && !input_.one_in(32) ? 0 : price(product_id));
    model::put(message, 46, 4, shares());
    model::put(message, 50, 2, flags());
    model::put_char(message, 52, tif);
    model::put_char(message, 53, type);
    if (tif == 'T' || input_.one_in(64)) {
        model::put(message, 112, 8, sides_.world.wall_ns / ns_per_ms + input_.below(3) - 1);
    }
    return {sender, message, {}};
}

Request EngineStory::replace() {
    const int sender = client();
    model::Bytes message(111, 0);
    model::put_text(message, 0, "M1");
    put_participant(message);
    put_id(message, 14);
    put_id(message, 34);
    const auto product_id = static_cast<std::uint32_t>(1 + input_.below(3));
    model::put(message, 54, 4, product_id);
    model::put(message, 58, 8, price(product_id));
    model::put(message, 66, 4, shares());
    model::put_char(message, 83, input_.pick(std::array<char, 4>{'D', 'I', 'F', '\0'}));
    return {sender, message, {}};
}

Request EngineStory::cancel() {
    const int sender = client();
    model::Bytes message(68, 0);
    model::put_text(message, 0, "CO");
    put_participant(message);
    put_id(message, 14);
    put_id(message, 34);
    model::put(message, 54, 4, input_.one_in(32) ? input_.byte() : 1 + input_.below(3));
    return {sender, message, {}};
}

// Whatever the bytes are, both sides must take them for the same.
Request EngineStory::any_bytes() {
    const int sender = client();
    return {sender, bytes_without_line_ends(input_.below(140)), {}};
}

// A stretch of requests from the random maker, which knows what is on the books and aims at it.
void EngineStory::made_requests() {
    model::RequestMaker maker(input_.number<std::uint16_t>(), sides_.venue, sides_.world);
    maker.wraps_prices = input_.below(2) == 1;
    for (std::size_t left = 1 + input_.below(16); left > 0 && effort_ < most_effort; --left) {
        check(sides_.handle(maker.next()));
    }
}

void EngineStory::let_time_pass() {
    constexpr std::array<std::uint64_t, 8> waits_ms{0, 1, 40, 299, 300, 1000, 1999, 2000};
    const std::uint64_t ms = input_.pick(waits_ms);
    sides_.let_pass(ms, input_.byte());
    check(sides_.cancel_unsolicited());
}

void EngineStory::tick() {
    check(sides_.tick(), effort_of_a_tick * sides_.venue.books.products.size());
}

void EngineStory::arm() {
    model::Faults faults;
    for (model::Bench::Fault& fault : faults) fault.script.every = static_cast<std::uint32_t>(input_.below(6));
    for (model::Bench::Fault& fault : faults) fault.script.next = static_cast<std::uint32_t>(input_.below(4));
    sides_.arm(faults);
}

void EngineStory::rare_event() {
    switch (input_.below(4)) {
        case 0: return check(sides_.drop(client()));
        case 1: return sides_.deliver();
        case 2: return sides_.pause(input_.below(2) == 1);
        default: return check(sides_.compare_all_books(), effort_of_a_tick);
    }
}

// A line end in an id would be written as it is, and the truth be read back as one line more than the model's.
model::Bytes EngineStory::bytes_without_line_ends(std::size_t size) {
    const ByteView bytes = input_.bytes(size);
    model::Bytes result(bytes.begin(), bytes.end());
    std::ranges::replace(result, '\n', '\r');
    return result;
}

void EngineStory::put_participant(model::Bytes& message) {
    constexpr std::array<std::string_view, 8> participants{"FRM0", "FRM0", "FRM0", "FRM0", "FRM0", "FRM1", "AB ", ""};
    model::put_blank_filled(message, 10, 4, input_.pick(participants));
}

// Few ids, so that they meet again and again; clients share them, as they do on the venue.
void EngineStory::put_id(model::Bytes& message, std::size_t at) {
    const std::size_t choice = input_.below(32);
    if (choice == 0) return model::put_text(message, at, as_text(bytes_without_line_ends(20)));
    model::put_text(message, at, choice == 1 ? "twenty-characters-id" : "c" + std::to_string(choice % 12));
}

// Near the market, in cents, and now and then anywhere.
std::uint64_t EngineStory::price(std::uint32_t product_id) {
    if (input_.one_in(32)) return input_.number<std::uint64_t>();
    if (input_.one_in(32)) return input_.number<std::uint32_t>() * std::uint64_t{10'000};
    const std::vector<model::Product>& products = sides_.venue.books.products;
    const model::Product& product = products[product_id == 0 || product_id > products.size() ? 0 : product_id - 1];
    const std::int64_t cents = std::llround(product.reference * 100.0) + static_cast<std::int8_t>(input_.byte()) / 8;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(cents, 1)) * 10'000;
}

std::uint32_t EngineStory::shares() {
    constexpr std::array<std::uint32_t, 8> sizes{100, 100, 1, 2, 50, 200, 300, 1000};
    if (input_.one_in(16)) return input_.number<std::uint32_t>();
    if (input_.one_in(4)) return input_.number<std::uint16_t>();
    return input_.pick(sizes);
}

// Mostly a buy that is not marked short or a sell that is.
std::uint16_t EngineStory::flags() {
    if (input_.one_in(16)) return input_.number<std::uint16_t>();
    const unsigned bits = input_.byte();
    const unsigned side = (bits & 1) == 0 ? 0u : 3u;
    const unsigned post_only = (bits & 0x0E) == 0x0E ? 0x10u : 0u;
    return static_cast<std::uint16_t>(side | post_only | (bits & 0x30) << 4);
}

}  // namespace kavo::fuzz

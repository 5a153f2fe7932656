// A day of the engine beside the venue of the model, told by the fuzzer's bytes: requests, scripted faults, time, ticks
// and clients that go away. After every step the two must be indistinguishable.
#pragma once

#include <cstdint>
#include <string>

#include "harness/input.h"
#include "support/side_by_side.h"

namespace kavo::fuzz {

class EngineStory {
public:
    explicit EngineStory(ByteView bytes);

    void tell();

private:
    // Comparing costs far more than what is compared. A tick changes every book many times over, so it weighs more than
    // a request; together this keeps the slowest story well below the limit of an input.
    static constexpr std::size_t most_effort = 250;
    static constexpr std::size_t effort_of_a_tick = 3;  // for each product

    void step();
    void check(const std::string& differences, std::size_t effort = 1);
    void tick();

    // One decision each.
    model::Request new_order();
    model::Request replace();
    model::Request cancel();
    model::Request any_bytes();
    void made_requests();
    void let_time_pass();
    void arm();
    void rare_event();

    // What requests are made of.
    int client() { return static_cast<int>(input_.below(4)); }
    model::Bytes bytes_without_line_ends(std::size_t size);
    void put_participant(model::Bytes& message);
    void put_id(model::Bytes& message, std::size_t at);
    std::uint64_t price(std::uint32_t product_id);
    std::uint32_t shares();
    std::uint16_t flags();

    Input input_;
    model::SideBySide sides_;
    std::size_t effort_ = 0;
};

}  // namespace kavo::fuzz

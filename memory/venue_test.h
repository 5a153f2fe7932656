// A GoogleTest fixture with a venue in memory: a test that fails tells how the day began and what the venue said last.
//
//     using Quoting = kavo::VenueTest;
//     TEST_F(Quoting, SurvivesADrop) {
//         kavo::MemoryVenue& venue = open({"--seed", "7"});
//         ...
//     }
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "memory/memory_venue.h"

namespace kavo {

class VenueTest : public testing::Test {
protected:
    static constexpr std::size_t last_lines = 20;

    // Begins a day; the one before it is over.
    MemoryVenue& open(const std::vector<std::string>& arguments = {}, const MemoryVenue::Setting& setting = {}) {
        beginning_.clear();
        for (const std::string& argument : arguments) beginning_ += " " + argument;
        if (!setting.scenario.empty()) beginning_ += " (scenario " + setting.scenario + ")";
        venue_ = std::make_unique<MemoryVenue>(arguments, setting);
        return *venue_;
    }

    void TearDown() override {
        if (!HasFailure() || !venue_) return;
        const std::vector<std::string> said = venue_->take_commentary();
        std::string text = "the venue began with:" + beginning_ + "\nand said last:\n";
        for (std::size_t i = said.size() - std::min(said.size(), last_lines); i < said.size(); ++i)
            text += said[i] + "\n";
        ADD_FAILURE() << text;
    }

private:
    std::unique_ptr<MemoryVenue> venue_;
    std::string beginning_;
};

}  // namespace kavo

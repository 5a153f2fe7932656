// The tables of the rules, one for each matter.
#pragma once

#include <span>

#include "kavo/audit/finding.h"

namespace kavo::companion {

std::span<const Rule> session_rules();
std::span<const Rule> order_rules();
std::span<const Rule> recovery_rules();
std::span<const Rule> belief_rules();

}  // namespace kavo::companion

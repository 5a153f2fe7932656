// What the auditor holds against a day. The first finding ends the audit: what comes behind it would only follow from
// it.
#pragma once

#include <stdexcept>
#include <string>

namespace kavo::simulation {

class Finding : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace kavo::simulation

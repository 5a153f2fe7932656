// One line of JSON, the way every verb writes them: "t", when, in wall-clock nanoseconds; "ev", what; and what else
// there is to say. Texts may hold any byte: what is no UTF-8 is shown as a replacement character.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace kavo::companion {

// Without its line end.
inline std::string json_line(std::uint64_t t_ns, const std::string& event, const nlohmann::ordered_json& fields) {
    nlohmann::ordered_json line{{"t", t_ns}, {"ev", event}};
    line.update(fields);
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace kavo::companion

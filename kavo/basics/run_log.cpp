#include "kavo/basics/run_log.h"

#include <nlohmann/json.hpp>

#include "kavo/basics/problem.h"

namespace kavo::companion {

using Json = nlohmann::ordered_json;

RunLog::RunLog(const std::filesystem::path& file) : out_(file, std::ios::app) {
    if (!out_) throw Problem(Status::bench, "cannot write " + file.string() + ": choose another folder with --dir");
}

void RunLog::write(std::uint64_t t_ns, std::string_view event,
                   std::initializer_list<std::pair<std::string_view, Value>> values) {
    Json line{{"t", t_ns}, {"ev", event}};
    for (const auto& [key, value] : values) {
        std::visit([&line, key = std::string(key)](const auto& plain) { line[key] = plain; }, value);
    }
    out_ << line.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
}

}  // namespace kavo::companion

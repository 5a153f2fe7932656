#include "kavo/basics/folder.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::ordered_json;

Json to_json(const BenchFacts& facts) {
    return Json{{"kavo", facts.version},
                {"pid", facts.pid},
                {"started_ns", facts.started_ns},
                {"command", facts.command},
                {"seed", facts.seed},
                {"scenario", facts.scenario},
                {"session", facts.session},
                {"group", facts.group},
                {"interface", facts.interface_address},
                {"feed_port", facts.feed_port},
                {"orders_port", facts.orders_port},
                {"recovery_port", facts.recovery_port},
                {"orders_behind_port", facts.orders_behind_port},
                {"recovery_behind_port", facts.recovery_behind_port},
                {"control_port", facts.control_port},
                {"acod", facts.acod},
                {"max_order_size", facts.max_order_size},
                {"symbols", facts.symbols},
                {"house", facts.house},
                {"enter", facts.enter}};
}

// Texts of flags may hold any byte; what is no UTF-8 is shown as such, and never ends the program.
std::string text_of(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void write_facts(const BenchFacts& facts, const std::filesystem::path& file) {
    std::ofstream out(file);
    out << text_of(to_json(facts)) << std::endl;
    if (!out)
        throw Problem(Status::bench, "cannot write " + file.string() + ": is the disk full, or the folder read-only?");
}

BenchFacts read_facts(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in)
        throw Problem(Status::usage, "there is no " + file.string() + ": give the folder of a run, as --dir named it");
    const Json json = Json::parse(in, nullptr, false);
    try {
        BenchFacts facts;
        json.at("kavo").get_to(facts.version);
        json.at("pid").get_to(facts.pid);
        json.at("started_ns").get_to(facts.started_ns);
        json.at("command").get_to(facts.command);
        json.at("seed").get_to(facts.seed);
        json.at("scenario").get_to(facts.scenario);
        json.at("session").get_to(facts.session);
        json.at("group").get_to(facts.group);
        json.at("interface").get_to(facts.interface_address);
        json.at("feed_port").get_to(facts.feed_port);
        json.at("orders_port").get_to(facts.orders_port);
        json.at("recovery_port").get_to(facts.recovery_port);
        json.at("orders_behind_port").get_to(facts.orders_behind_port);
        json.at("recovery_behind_port").get_to(facts.recovery_behind_port);
        json.at("control_port").get_to(facts.control_port);
        json.at("acod").get_to(facts.acod);
        json.at("max_order_size").get_to(facts.max_order_size);
        json.at("symbols").get_to(facts.symbols);
        json.at("house").get_to(facts.house);
        json.at("enter").get_to(facts.enter);
        return facts;
    } catch (const Json::exception&) {
        throw Problem(Status::usage,
                      file.string() + " is not what kavo writes: was the run cut short, or is it another file?");
    }
}

std::string facts_line(const BenchFacts& facts, const RunFolder& folder) {
    Json json = to_json(facts);
    json["dir"] = folder.path.string();
    json["venue_log"] = folder.venue_log().string();
    json["orders"] = folder.order_truth().string();
    json["books"] = folder.book_truth().string();
    json["wire"] = folder.wire().string();
    json["client"] = folder.beliefs().string();
    return text_of(json);
}

}  // namespace kavo::companion

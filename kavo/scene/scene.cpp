#include "kavo/scene/scene.h"

#include <algorithm>

#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

using Trigger = ScriptStep::Trigger;

std::string joined(const std::vector<std::string>& words, std::size_t first) {
    std::string text;
    for (std::size_t i = first; i < words.size(); ++i) text += (text.empty() ? "" : " ") + words[i];
    return text;
}

// What one word of the script does to one direction.
void set_fault(DirectionFaults& faults, const std::string& what, const std::string& value) {
    if (what == "latency") faults.latency = read_time(value);
    if (what == "bandwidth") faults.bytes_per_second = read_count(value);
    if (what == "piece") faults.piece = read_count(value);
    if (what == "hold") faults.hold = true;
    if (what == "release") faults.hold = false;
    if (what == "swallow") faults.swallow = read_count(value);
    if (what == "half") faults.half = true;
}

void check_symbol(const ScriptStep& step, const std::vector<std::string>& symbols) {
    if (step.action[0] != "house" || step.action.size() < 6) return;
    if (std::find(symbols.begin(), symbols.end(), step.action[5]) != symbols.end()) return;
    throw Problem(Status::usage, "line " + std::to_string(step.line) + " of the script: this venue has no symbol '" +
                                     step.action[5] + "'; it has " + joined(symbols, 0));
}

client::NewOrder with_conditions(client::NewOrder order, const std::string& word) {
    if (word == "ioc") return order.immediate();
    if (word == "fok") return order.all_or_nothing();
    if (word == "post") return order.post_only();
    return order;
}

}  // namespace

Scene::Scene(Loop& loop, Bench& bench, std::vector<ScriptStep> steps)
    : loop_(loop), bench_(bench), house_(loop, bench.facts().house, bench.facts().orders_port) {
    for (const ScriptStep& step : steps) check_symbol(step, bench.facts().symbols);
    const auto stands = [](const ScriptStep& step) { return step.trigger == Trigger::whenever; };
    std::copy_if(steps.begin(), steps.end(), std::back_inserter(standing_), stands);
    std::erase_if(steps, stands);
    steps_ = std::move(steps);
    bench_.orders().on_packet = [this](const std::string& user, bool by_client, ByteView packet) {
        if (user != bench_.facts().house) sightings_.see(user, by_client, packet);
    };
    sightings_.on_event = [this](const SceneEvent& event) { heard(event); };
    arm();
}

// Sees to it that the next step is carried out in its time. Nothing is carried out from in here, so that a step never
// begins inside another one.
void Scene::arm() {
    if (next_ == steps_.size()) return;
    const ScriptStep& step = steps_[next_];
    std::chrono::nanoseconds wait{0};
    if (step.trigger == Trigger::when) {
        waiting_for_event_ = true;
        if (step.event.order == "any" || !sightings_.has_seen(step.event)) return;
        waiting_for_event_ = false;
        latest_ = step.event;
    }
    if (step.trigger == Trigger::after) wait = step.time;
    if (step.trigger == Trigger::at) {
        wait = std::max<std::chrono::nanoseconds>(begun_ + step.time - std::chrono::steady_clock::now(), wait);
    }
    loop_.after(wait, [this] { go_on(); });
}

void Scene::go_on() {
    const ScriptStep step = steps_[next_++];
    carry_out(step, latest_);
    arm();
}

void Scene::heard(const SceneEvent& event) {
    for (const ScriptStep& step : standing_) {
        if (event.matches(step.event)) loop_.after(std::chrono::nanoseconds{0}, [=, this] { carry_out(step, event); });
    }
    if (!waiting_for_event_ || !event.matches(steps_[next_].event)) return;
    waiting_for_event_ = false;
    latest_ = event;
    loop_.after(std::chrono::nanoseconds{0}, [this] { go_on(); });
}

void Scene::carry_out(const ScriptStep& step, const SceneEvent& event) {
    bench_.log().write(now_ns(), "script",
                       {{"line", static_cast<std::int64_t>(step.line)}, {"text", std::string_view(step.text)}});
    if (step.action[0] == "control") control(step);
    if (step.action[0] == "house") trade(step.action, event);
    if (step.action[0] == "relay") interfere(step.action);
}

void Scene::control(const ScriptStep& step) {
    const std::string word = joined(step.action, 1);
    bench_.control(word, [this, word](const std::string& reply) {
        bench_.log().write(now_ns(), "control", {{"word", std::string_view(word)}, {"reply", std::string_view(reply)}});
    });
}

void Scene::trade(const std::vector<std::string>& action, const SceneEvent& event) {
    if (action[1] == "take") return take(action, event);
    if (action[1] == "cancel") return house_.cancel(client::cancel(action[2]));
    client::NewOrder order =
        (action[1] == "buy" ? client::buy(action[2]) : client::sell(action[2])).shares(read_count(action[3]));
    order = action[4] == "market" ? order.market() : order.at(action[4]);
    const auto& symbols = bench_.facts().symbols;
    const auto product = std::find(symbols.begin(), symbols.end(), action[5]);
    house_.enter(with_conditions(order.product(static_cast<std::uint32_t>(product - symbols.begin()) + 1),
                                 action.size() == 7 ? action[6] : ""));
}

// The house sells into a buy and buys from a sell, at the order's own price, and leaves nothing behind. An order that
// the venue has not confirmed cannot be taken: nothing is done then, and the log of the venue shows no trade.
void Scene::take(const std::vector<std::string>& action, const SceneEvent& event) {
    const auto order = sightings_.order(action[4] == "it" ? event.order : action[4]);
    if (!order) return;
    client::NewOrder taker = order->buy ? client::sell(house_.fresh_id()) : client::buy(house_.fresh_id());
    taker.price = order->price;
    house_.enter(taker.shares(read_count(action[2])).product(order->product_id).immediate());
}

void Scene::interfere(const std::vector<std::string>& action) {
    Relay& relay = action[2] == "orders" ? bench_.orders() : bench_.recovery();
    const std::string& user = action[1];
    const bool one_way = action[3] == "up" || action[3] == "down";
    const std::string& what = action[one_way ? 4 : 3];
    const std::string value = action.size() > (one_way ? 5u : 4u) ? action.back() : "";
    bench_.log().write(now_ns(), "relay",
                       {{"user", std::string_view(user)}, {"what", std::string_view(joined(action, 2))}});
    if (what == "cut" || what == "reset" || what == "abandon") {
        relay.break_connections(user, what == "cut"     ? Breaking::cut
                                      : what == "reset" ? Breaking::reset
                                                        : Breaking::abandon);
        return;
    }
    RelayFaults& faults = relay.faults(user);
    if (action[3] != "down") set_fault(faults.up, what, value);
    if (action[3] != "up") set_fault(faults.down, what, value);
    relay.apply(user);
}

}  // namespace kavo::companion

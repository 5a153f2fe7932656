#include "support/ledger.h"

#include <stdexcept>

#include "engine/meo_layout.h"
#include "support/scene.h"

namespace kavo::test {

namespace {

namespace layout = meo::layout;

// The value of a key of a truth line, without quotes; empty when the line does not have it.
std::string value_of(const std::string& line, const std::string& key) {
    const std::string label = "\"" + key + "\":";
    std::size_t start = line.find(label);
    if (start == std::string::npos) return {};
    start += label.size();
    if (line[start] == '"') return line.substr(start + 1, line.find('"', start + 1) - start - 1);
    return line.substr(start, line.find_first_of(",}", start) - start);
}

std::string cancel_reason(const std::string& cause) {
    static const std::map<std::string, std::string> reasons = {
        {"post_only", "E"},     {"expired", "C"},    {"cancel", "U"},
        {"modify_closed", "U"}, {"disconnect", "D"}, {"unsolicited", "H"},
    };
    return reasons.at(cause);
}

// The words of an entry, the event first.
template <typename... Words>
std::string entry(const std::string& event, const Words&... words) {
    return (event + ... + (" " + words));
}

std::string entry_of_line(const std::string& line) {
    const auto value = [&line](const std::string& key) { return value_of(line, key); };
    const std::string event = value("ev");
    const std::string id = value("cl");
    if (event == "new") return entry(event, id, value("oid"), value("side"), value("qty"), value("px"));
    if (event == "reject") return entry(event, id, value("qty"), value("px"));
    if (event == "fill") return entry(event, id, value("last_qty"));
    if (event == "cancel") return entry(event, id, value("oid"), value("leaves"), cancel_reason(value("text")));
    if (event == "cancel_reject") return entry(event, id);
    if (event == "replace") return entry(event, id, value("ref"), value("oid"), value("qty"), value("leaves"));
    if (event == "replace_reject") return entry(event, id, value("ref"), value("oid"));
    throw std::runtime_error("an unknown line of order truth: " + line);
}

template <typename Field>
std::string number(ByteView message, Field field) {
    return std::to_string(get(message, field));
}

// The same from a message; empty when there is nothing to be written down about it.
std::string entry_of_message(ByteView m) {
    const std::string_view type = as_text(m.first(2));
    if (type == "NR" && get(m, layout::new_order_response::reason) == 'R') {
        namespace at = layout::new_order_response;
        return entry("reject", std::string(terminated_text(m, at::client_order_id)), number(m, at::quantity),
                     price_text(get(m, at::price)));
    }
    if (type == "O1") {
        namespace at = layout::order_accepted;
        const std::string side = (get(m, at::order_flags) & 1) != 0 ? "S" : "B";
        return entry("new", std::string(terminated_text(m, at::client_order_id)), number(m, at::order_id), side,
                     number(m, at::quantity), price_text(get(m, at::price)));
    }
    if (type == "E1") {
        namespace at = layout::execution;
        return entry("fill", std::string(terminated_text(m, at::client_order_id)), number(m, at::quantity));
    }
    if (type == "XN") {
        namespace at = layout::order_cancelled;
        return entry("cancel", std::string(terminated_text(m, at::client_order_id)), number(m, at::order_id),
                     number(m, at::leaves), std::string(1, get(m, at::reason)));
    }
    if (type == "CR" && get(m, layout::cancel_response::reason) == 'D') {
        return entry("cancel_reject", std::string(terminated_text(m, layout::cancel_response::orig_client_order_id)));
    }
    if (type == "MR" && get(m, layout::modify_response::reason) != ' ') {
        namespace at = layout::modify_response;
        return entry("replace_reject", std::string(terminated_text(m, at::client_order_id)),
                     std::string(terminated_text(m, at::orig_client_order_id)), number(m, at::order_id));
    }
    // A replacement by no more than was executed closes the order, and a cancel is all that is written down.
    if (type == "MN" && get(m, layout::modify_notification::leaves) != 0) {
        namespace at = layout::modify_notification;
        return entry("replace", std::string(terminated_text(m, at::client_order_id)),
                     std::string(terminated_text(m, at::orig_client_order_id)), number(m, at::order_id),
                     number(m, at::quantity), number(m, at::leaves));
    }
    return {};
}

std::string at_moment(const std::string& wall_ns) {
    return " at " + wall_ns;
}

std::string event_of(const std::string& entry) {
    return entry.substr(0, entry.find(' '));
}

}  // namespace

void Ledger::told(ByteView message) {
    const std::string entry = entry_of_message(message);
    if (entry.empty()) return;
    ++counts[event_of(entry)];
    count(entry + at_moment(number(message, layout::timestamp)), 1);
}

void Ledger::written(const std::string& line) {
    count(entry_of_line(line) + at_moment(value_of(line, "t")), -1);
}

void Ledger::count(const std::string& entry, int side) {
    const auto found = balance_.try_emplace(entry, 0).first;
    found->second += side;
    if (found->second == 0) balance_.erase(found);
}

std::map<std::string, std::size_t> Ledger::unmatched() const {
    std::map<std::string, std::size_t> unmatched;
    for (const auto& [entry, balance] : balance_) {
        const std::string side = balance > 0 ? " told" : " written";
        unmatched[event_of(entry) + side] += static_cast<std::size_t>(std::abs(balance));
    }
    return unmatched;
}

std::string Ledger::examples() const {
    std::string text;
    std::size_t left = 20;
    for (const auto& [entry, balance] : balance_) {
        if (left-- == 0) break;
        text += entry + (balance > 0 ? ", told\n" : ", written\n");
    }
    return text;
}

}  // namespace kavo::test

#include "support/ledger.h"

#include <stdexcept>

#include "client/responses.h"
#include "support/scene.h"

namespace kavo::test {

namespace {

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

std::string number(std::uint64_t value) {
    return std::to_string(value);
}

struct Told {
    std::string entry;  // empty when there is nothing to be written down
    std::uint64_t timestamp = 0;
};

// The same from a message.
Told told_by(ByteView message) {
    const auto text = [](std::string_view lent) { return std::string(lent); };
    if (const auto m = read_new_order_response(message); m && m->reason == meo::NewOrderReason::scripted) {
        return {entry("reject", text(m->client_order_id), number(m->quantity), price_text(m->price)), m->timestamp};
    }
    if (const auto m = read_order_accepted(message)) {
        const std::string side = m->flags.sell() ? "S" : "B";
        return {entry("new", text(m->client_order_id), number(m->order_id), side, number(m->quantity),
                      price_text(m->price)),
                m->timestamp};
    }
    if (const auto m = read_execution(message)) {
        return {entry("fill", text(m->client_order_id), number(m->quantity)), m->timestamp};
    }
    if (const auto m = read_order_cancelled(message)) {
        const std::string reason(1, static_cast<char>(m->reason));
        return {entry("cancel", text(m->client_order_id), number(m->order_id), number(m->leaves), reason),
                m->timestamp};
    }
    if (const auto m = read_cancel_response(message); m && m->reason == meo::CancelReason::unknown_or_late) {
        return {entry("cancel_reject", text(m->orig_client_order_id)), m->timestamp};
    }
    if (const auto m = read_replace_response(message); m && !m->accepted()) {
        return {entry("replace_reject", text(m->client_order_id), text(m->orig_client_order_id), number(m->order_id)),
                m->timestamp};
    }
    // A replacement by no more than was executed closes the order, and a cancel is all that is written down.
    if (const auto m = read_replace_notification(message); m && m->leaves != 0) {
        return {entry("replace", text(m->client_order_id), text(m->orig_client_order_id), number(m->order_id),
                      number(m->quantity), number(m->leaves)),
                m->timestamp};
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
    const Told told = told_by(message);
    if (told.entry.empty()) return;
    ++counts[event_of(told.entry)];
    count(told.entry + at_moment(number(told.timestamp)), 1);
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

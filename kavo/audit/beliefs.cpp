#include "kavo/audit/beliefs.h"

#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

namespace kavo::companion {

namespace {

using nlohmann::json;

constexpr std::size_t longest_line = 1 << 20;
constexpr std::size_t most_told = 5;                            // defects that are told one by one
constexpr std::uint64_t earliest_ns = 100'000'000'000'000'000;  // in 1973: whatever is less is no count of nanoseconds
constexpr std::uint64_t largest_count = 1'000'000'000'000'000;  // shares; prices are millionths of as many
constexpr unsigned decimals_of_price = 6;

// A line that is none, with what is wrong with it.
struct Defect {
    std::string why;
};

const json* find(const json& line, const char* key) {
    const auto it = line.find(key);
    return it == line.end() || it->is_null() ? nullptr : &*it;
}

std::string text(const json& line, const char* key) {
    const json* value = find(line, key);
    if (value == nullptr) throw Defect{std::string("it has no ") + key};
    if (!value->is_string()) throw Defect{std::string("its ") + key + " is no text"};
    return value->get<std::string>();
}

std::optional<std::uint64_t> digits(std::string_view text) {
    if (text.empty() || text.size() > 20) return std::nullopt;
    std::uint64_t number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9' || number > (UINT64_MAX - 9) / 10) return std::nullopt;
        number = number * 10 + static_cast<std::uint64_t>(digit - '0');
    }
    return number;
}

std::optional<std::uint64_t> whole_number(const json& value) {
    if (value.is_number_unsigned()) return value.get<std::uint64_t>();
    if (value.is_string()) return digits(value.get_ref<const std::string&>());
    if (!value.is_number_float()) return std::nullopt;
    const double number = value.get<double>();
    if (!(number >= 0 && number < 9e15) || number != std::floor(number)) return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

std::optional<std::uint64_t> number(const json& line, const char* key) {
    const json* value = find(line, key);
    if (value == nullptr) return std::nullopt;
    const auto read = whole_number(*value);
    if (!read) throw Defect{std::string("its ") + key + " is no whole number"};
    return read;
}

// "189.95" as millionths, without a way over floating point.
std::optional<std::uint64_t> decimal(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto whole = digits(text.substr(0, point));
    if (!whole || *whole > largest_count / 1'000'000) return std::nullopt;
    std::string fraction(point == std::string_view::npos ? "0" : text.substr(point + 1));
    while (fraction.size() > decimals_of_price && fraction.back() == '0') fraction.pop_back();
    if (fraction.empty() || fraction.size() > decimals_of_price) return std::nullopt;
    fraction.resize(decimals_of_price, '0');
    const auto millionths = digits(fraction);
    if (!millionths) return std::nullopt;
    return *whole * 1'000'000 + *millionths;
}

std::uint64_t price(const json& value) {
    std::optional<std::uint64_t> millionths;
    if (value.is_string()) millionths = decimal(value.get_ref<const std::string&>());
    if (value.is_number()) {
        const double number = value.get<double>();
        if (number >= 0 && number < 1e9) millionths = static_cast<std::uint64_t>(std::llround(number * 1e6));
    }
    if (!millionths) throw Defect{"a price is no decimal number"};
    return *millionths;
}

std::optional<std::vector<BelievedLevel>> levels(const json& line, const char* key) {
    const json* side = find(line, key);
    if (side == nullptr) return std::nullopt;
    if (!side->is_array()) throw Defect{std::string("its ") + key + " are no list"};
    std::vector<BelievedLevel> levels;
    for (const json& level : *side) {
        if (!level.is_array() || level.size() < 2) throw Defect{"a level is no pair of price and quantity"};
        const auto quantity = whole_number(level[1]);
        if (!quantity || *quantity > largest_count) throw Defect{"a quantity is no whole number"};
        levels.push_back({price(level[0]), *quantity});
    }
    return levels;
}

OrderBelief order_of(const json& line) {
    static const std::set<std::string, std::less<>> states{"pending",  "working",  "filled", "cancelled",
                                                           "rejected", "replaced", "lost"};
    OrderBelief belief;
    belief.id = text(line, "id");
    belief.state = text(line, "state");
    if (!states.contains(belief.state)) throw Defect{"there is no such state"};
    belief.leaves = number(line, "leaves");
    belief.executed = number(line, "executed");
    belief.sequence = number(line, "seq");
    return belief;
}

FillBelief fill_of(const json& line) {
    FillBelief belief;
    belief.id = text(line, "id");
    const auto quantity = number(line, "quantity");
    const json* paid = find(line, "price");
    if (!quantity || paid == nullptr) throw Defect{"a fill needs quantity and price"};
    belief.quantity = *quantity;
    belief.price = price(*paid);
    belief.execution = number(line, "execution");
    return belief;
}

BookBelief book_of(const json& line) {
    BookBelief belief;
    belief.symbol = text(line, "symbol");
    const json* sequence = find(line, "seq");
    if (sequence != nullptr && *sequence != "-") belief.sequence = number(line, "seq");
    if (belief.sequence == 0U) belief.sequence.reset();
    if (const json* stale = find(line, "stale")) {
        if (!stale->is_boolean()) throw Defect{"its stale is neither true nor false"};
        belief.stale = stale->get<bool>();
    }
    belief.bids = levels(line, "bids");
    belief.asks = levels(line, "asks");
    belief.depth = number(line, "depth");
    if (!belief.stale && !belief.bids && !belief.asks) throw Defect{"a book needs bids or asks"};
    return belief;
}

class Reader {
public:
    void take(std::string_view line, bool cut_short) {
        ++line_;
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) return;
        const json parsed = line.size() > longest_line ? json() : json::parse(line, nullptr, false);
        if (parsed.is_discarded() && cut_short) return;
        if (!parsed.is_object()) return defect("");
        try {
            take(parsed);
        } catch (const Defect& wrong) {
            defect(": " + wrong.why);
        }
    }

    Beliefs end() {
        if (defects_ > most_told) {
            found_.defects.push_back("and " + std::to_string(defects_ - most_told) + " more lines that are none");
        }
        return std::move(found_);
    }

private:
    void take(const json& line) {
        const std::string event = text(line, "ev");
        Said said = said_by(line);
        if (event == "order")
            put(order_of(line), said, found_.orders);
        else if (event == "fill")
            put(fill_of(line), said, found_.fills);
        else if (event == "book")
            put(book_of(line), said, found_.books);
        else if (event == "start")
            begin_anew(said.user);
        else if (event != "note")
            unknown(event);
    }

    template <typename Belief>
    void put(Belief belief, const Said& said, std::vector<Belief>& beliefs) {
        belief.said = said;
        beliefs.push_back(std::move(belief));
        ++found_.lines;
    }

    Said said_by(const json& line) {
        Said said;
        said.line = line_;
        if (find(line, "user") != nullptr) said.user = text(line, "user");
        if (const auto t_ns = number(line, "t")) {
            if (*t_ns < earliest_ns) throw Defect{"its t is no count of nanoseconds since 1970"};
            said.t_ns = *t_ns;
        }
        said.life = lives_of_all_ + (said.user.empty() ? 0 : lives_[said.user]);
        return said;
    }

    void begin_anew(const std::string& user) {
        found_.tells_beginnings = true;
        ++(user.empty() ? lives_of_all_ : lives_[user]);
    }

    void defect(const std::string& why) {
        if (++defects_ > most_told) return;
        found_.defects.push_back("the client's log has a line that is none: line " + std::to_string(line_) + why);
    }

    void unknown(const std::string& event) {
        if (found_.unknowns.size() >= most_told || !told_.insert(event).second) return;
        found_.unknowns.push_back("line " + std::to_string(line_) + " has an event of another kind: " +
                                  json(event.substr(0, 40)).dump(-1, ' ', true, json::error_handler_t::replace));
    }

    Beliefs found_;
    std::size_t line_ = 0;
    std::size_t defects_ = 0;
    unsigned lives_of_all_ = 0;
    std::map<std::string, unsigned> lives_;
    std::set<std::string> told_;
};

}  // namespace

Beliefs read_beliefs(std::string_view text) {
    Reader reader;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        reader.take(text.substr(0, end), end == std::string_view::npos);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return reader.end();
}

std::optional<Beliefs> read_beliefs(const RunFolder& folder) {
    std::ifstream file(folder.beliefs(), std::ios::binary);
    if (!file) return std::nullopt;
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return read_beliefs(std::string_view(text));
}

}  // namespace kavo::companion

// The two texts of the command line that have a structure of their own: the symbol list and the burst of drops.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "app/options.h"
#include "harness/harness.h"
#include "model/texts.h"

namespace kavo::fuzz {
namespace {

// The library's own conversion, whose answer is the rule here. Text behind a NUL is not seen by it.
std::optional<double> leading_double(std::string_view text) {
    const std::string terminated(text);
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(terminated.c_str(), &end);
    if (end == terminated.c_str() || errno == ERANGE) return std::nullopt;
    return value;
}

bool same(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

// What a parser gives; nothing when it ends with an error of the standard conversions.
template <typename Parse>
auto attempted(Parse parse) -> std::optional<decltype(parse())> {
    try {
        return parse();
    } catch (const std::logic_error&) {  // a number that is none, deliberately caught by nobody in the simulator
        return std::nullopt;
    }
}

std::optional<std::vector<SymbolItem>> literal_symbols(std::string_view text) {
    std::vector<SymbolItem> symbols;
    for (const std::string_view item : model::comma_list(text)) {
        const std::size_t colon = item.find(':');
        std::optional<double> price = 100.0;
        if (colon != std::string_view::npos) price = leading_double(item.substr(colon + 1));
        if (!price) return std::nullopt;
        symbols.push_back({std::string(item.substr(0, colon)), *price});
    }
    return symbols;
}

void check_symbols(const std::string& text) {
    const auto read = attempted([&] { return parse_symbols(text); });
    const auto literal = literal_symbols(text);
    require(read.has_value() == literal.has_value(), "a symbol list is read unless a price is no number");
    if (!read) return;
    const auto same_item = [](const SymbolItem& a, const SymbolItem& b) {
        return a.name == b.name && same(a.reference, b.reference);
    };
    require(std::ranges::equal(*read, *literal, same_item), "symbols and prices are those written");
}

std::optional<DropBurst> literal_burst(std::string_view text) {
    if (text.empty()) return DropBurst{};
    const std::size_t colon = text.find(':');
    const std::optional<std::uint64_t> start = model::leading_unsigned(text.substr(0, colon));
    std::optional<std::uint64_t> count = 1;
    if (colon != std::string_view::npos) count = model::leading_unsigned(text.substr(colon + 1));
    if (!start || !count) return std::nullopt;
    return DropBurst{*start, static_cast<std::uint32_t>(*count)};
}

void check_burst(const std::string& text) {
    const auto read = attempted([&] { return parse_drop_burst(text); });
    const auto literal = literal_burst(text);
    require(read.has_value() == literal.has_value(), "a burst is read unless one of its numbers is none");
    if (!read) return;
    require(read->start == literal->start && read->count == literal->count, "a burst starts and ends as written");
}

void read_texts(ByteView input) {
    const std::string text(as_text(input));
    check_symbols(text);
    check_burst(text);
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::read_texts);
}

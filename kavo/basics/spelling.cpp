#include "kavo/basics/spelling.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace kavo::companion {

std::size_t spelling_distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::size_t before = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t changed = before + (from[i - 1] == to[j - 1] ? 0 : 1);
            before = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace kavo::companion

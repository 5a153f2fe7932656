// The books that a client believed in, each held against the venue's own behind the same number.
#include <algorithm>

#include "client/packets.h"
#include "client/transcript.h"
#include "common/price.h"
#include "kavo/audit/belief_scene.h"
#include "kavo/audit/gaps.h"
#include "kavo/audit/recovery_attempts.h"

namespace kavo::companion {

namespace {

constexpr std::size_t levels_of_truth = 10;
constexpr std::size_t symbol_on_the_feed = 11;  // characters
using Levels = std::vector<BelievedLevel>;

bool same(const Levels& one, const Levels& other, std::size_t levels) {
    return std::equal(
        one.begin(), one.begin() + static_cast<std::ptrdiff_t>(levels), other.begin(),
        [](const BelievedLevel& a, const BelievedLevel& b) { return a.price == b.price && a.quantity == b.quantity; });
}

Levels levels_of(const std::vector<BookLevel>& side) {
    Levels levels;
    for (const BookLevel& level : side) levels.push_back({to_wire(level.price), level.quantity});
    return levels;
}

// Best first, a price once: whoever writes order by order, or the other way round, believes no less.
Levels in_order(Levels levels, bool bids) {
    std::stable_sort(levels.begin(), levels.end(), [&](const BelievedLevel& one, const BelievedLevel& other) {
        return bids ? one.price > other.price : one.price < other.price;
    });
    Levels summed;
    for (const BelievedLevel& level : levels) {
        if (!summed.empty() && summed.back().price == level.price)
            summed.back().quantity += level.quantity;
        else
            summed.push_back(level);
    }
    return summed;
}

std::string levels_text(const Levels& levels) {
    std::string text;
    for (const BelievedLevel& level : levels) {
        if (text.size() > 400) return text + " ...";
        text += " " + client::price_text(level.price) + "x" + std::to_string(level.quantity);
    }
    return levels.empty() ? " -" : text;
}

class BookJudge {
public:
    BookJudge(BeliefScene& scene, const Verdict& so_far)
        : scene_(scene), feed_(picture_of_feed(scene.journal, scene.around)), published_(feed_.highest) {
        for (const Finding& finding : so_far.findings) {
            const std::string_view rule = finding.rule->name;
            const bool unasked = finding.grade == Grade::finding &&
                                 (rule == "recovery.asks-for-what-was-lost" || rule == "recovery.again-when-cut");
            if (unasked && finding.where.feed_number != 0) gap_ = std::min(gap_, finding.where.feed_number);
        }
        for (const RecoveryAttempt& attempt : recovery_attempts(scene.journal)) {
            published_ = std::max({published_, attempt.told, attempt.served.last(), attempt.as_of});
        }
        for (const Gap& gap : feed_.gaps) published_ = std::max(published_, gap.numbers.last);
        stopped_in_order_ = std::any_of(scene.journal.venue.begin(), scene.journal.venue.end(),
                                        [](const VenueLine& line) { return line.text == "[kavo_me] stopped"; });
    }

    void judge() {
        for (const BookBelief& belief : scene_.beliefs.books) {
            if (belief.stale || !belief.sequence) continue;
            note_depth(belief);
            beliefs_.push_back(&belief);
        }
        std::stable_sort(beliefs_.begin(), beliefs_.end(), [](const BookBelief* one, const BookBelief* other) {
            return *one->sequence < *other->sequence;
        });
        walk();
    }

private:
    using Whose = std::pair<std::string, std::string>;  // user and symbol

    void note_depth(const BookBelief& belief) {
        std::size_t& deepest = deepest_[{belief.said.user, belief.symbol}];
        for (const auto* side : {&belief.bids, &belief.asks}) {
            if (*side) deepest = std::max(deepest, (*side)->size());
        }
    }

    // Through the truth and the beliefs together, both by number.
    void walk() {
        BookTruthReader reader(scene_.journal.book_truth);
        BookLine line;
        auto next = beliefs_.begin();
        while (next != beliefs_.end() && reader.next(line)) {
            while (next != beliefs_.end() && *(*next)->sequence < line.sequence) judge(**next++);
            published_ = std::max(published_, line.sequence);
            if (!line.is_mark) std::swap(books_[line.product_id], line);
        }
        for (; next != beliefs_.end(); ++next) judge_behind_truth(**next, reader.broken());
    }

    // Behind the last line the truth is known only if nothing was left to be written.
    void judge_behind_truth(const BookBelief& belief, bool broken) {
        if (*belief.sequence > published_) return tell_too_far(belief);
        if (broken || !stopped_in_order_) {
            if (agrees(belief)) return;
            truth_ends_ = true;
        }
        judge(belief);
    }

    void tell_too_far(const BookBelief& belief) {
        Finding finding = about(belief);
        finding.expected = "a number that has been published: the last one is " + std::to_string(published_);
        finding.truth = "none";
        if (scene_.around.kernel_drops_of_kavo != 0 || !stopped_in_order_) {
            return scene_.list.doubtful(std::move(finding), "the end of the feed was not recorded");
        }
        scene_.list.content(std::move(finding));
    }

    // 0 when there is no such product, or more than one.
    std::uint32_t product_of(const std::string& symbol) const {
        const std::vector<std::string>& symbols = scene_.journal.facts.symbols;
        std::uint32_t found = 0;
        for (std::size_t i = 0; i < symbols.size(); ++i) {
            if (symbols[i] == symbol) return static_cast<std::uint32_t>(i + 1);
            if (symbols[i].substr(0, symbol_on_the_feed) != symbol) continue;
            if (found != 0) return 0;
            found = static_cast<std::uint32_t>(i + 1);
        }
        return found;
    }

    void judge(const BookBelief& belief) {
        if (product_of(belief.symbol) == 0) return tell_unknown(belief);
        if (agrees(belief)) return;
        Whose whose{belief.said.user, belief.symbol};
        Finding finding = about(belief);
        const BookLine& book = books_[product_of(belief.symbol)];
        finding.truth = heading(belief) + " bids" + levels_text(levels_of(book.bids)) + " | asks" +
                        levels_text(levels_of(book.asks));
        if (book.sequence != *belief.sequence) finding.truth += ", since " + std::to_string(book.sequence);
        finding.expected = finding.truth;
        tell(std::move(finding), belief);
    }

    void tell(Finding finding, const BookBelief& belief) {
        if (truth_ends_) return scene_.list.doubtful(std::move(finding), "the venue's book truth ends before");
        if (*belief.sequence >= gap_) {
            finding.because = "follows from the gap at " + std::to_string(gap_) + ", see recovery";
            return scene_.list.remark(std::move(finding));
        }
        scene_.list.content(std::move(finding));
    }

    void tell_unknown(const BookBelief& belief) {
        Finding finding = about(belief);
        finding.expected = "the name of a product";
        finding.truth = "none";
        scene_.list.doubtful(std::move(finding), "the client's log names a product that there is not, or not alone");
    }

    bool agrees(const BookBelief& belief) {
        const BookLine& book = books_[product_of(belief.symbol)];
        return agrees(belief, belief.bids, book.bids, true) && agrees(belief, belief.asks, book.asks, false);
    }

    bool agrees(const BookBelief& belief, const std::optional<Levels>& told, const std::vector<BookLevel>& side,
                bool bids) {
        if (!told) return true;
        const Levels believed = in_order(*told, bids);
        const Levels truth = levels_of(side);
        if (believed.size() > truth.size() && truth.size() < levels_of_truth) return false;
        if (believed.size() < truth.size() && !may_be_shorter(belief, believed.size(), truth.size())) return false;
        return same(believed, truth, std::min(believed.size(), truth.size()));
    }

    // A side with fewer levels than there are is whole only for who never gives more.
    bool may_be_shorter(const BookBelief& belief, std::size_t levels, std::size_t there_are) const {
        if (belief.depth) return levels == std::min<std::uint64_t>(*belief.depth, there_are);
        const std::size_t deepest = deepest_.at({belief.said.user, belief.symbol});
        return levels != 0 && (levels == 1 || levels == 5 || levels == deepest);
    }

    static std::string heading(const BookBelief& belief) {
        std::string symbol = in_quotes(belief.symbol);
        return symbol.substr(1, symbol.size() - 2) + " at " + std::to_string(*belief.sequence) + ":";
    }

    Finding about(const BookBelief& belief) const {
        Finding finding;
        finding.rule = &belief_book;
        finding.belief = heading(belief);
        if (belief.bids) finding.belief += " bids" + levels_text(in_order(*belief.bids, true));
        if (belief.asks)
            finding.belief +=
                std::string(belief.bids ? " |" : "") + " asks" + levels_text(in_order(*belief.asks, false));
        finding.got = "line " + std::to_string(belief.said.line) + ": " + finding.belief;
        finding.where.user = belief.said.user;
        finding.where.feed_number = *belief.sequence;
        finding.where.moment.ns = belief.said.t_ns != 0 ? belief.said.t_ns : feed_.came_ns(*belief.sequence);
        return finding;
    }

    BeliefScene& scene_;
    FeedPicture feed_;
    std::uint64_t published_;
    std::uint64_t gap_ = UINT64_MAX;  // from here on, whatever is wrong follows from something that was found already
    bool stopped_in_order_ = false;
    bool truth_ends_ = false;
    std::map<Whose, std::size_t> deepest_;
    std::map<std::uint32_t, BookLine> books_;  // the latest of each product
    std::vector<const BookBelief*> beliefs_;
};

}  // namespace

void judge_books(BeliefScene& scene, const Verdict& so_far) {
    if (!scene.beliefs.books.empty()) BookJudge(scene, so_far).judge();
}

}  // namespace kavo::companion

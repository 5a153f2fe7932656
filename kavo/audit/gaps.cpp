#include "kavo/audit/gaps.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>

#include "client/feed_messages.h"

namespace kavo::companion {

namespace {

constexpr unsigned datagrams_of_patience = 3;

// What one datagram brings: a stretch of messages, and what its other packets say.
struct Brought {
    std::optional<SequenceRange> messages;
    std::optional<std::uint64_t> heartbeat;
    bool start = false;
};

Brought read(ByteView datagram) {
    Brought brought;
    while (const auto packet = client::read_feed_packet(datagram)) {
        const std::uint64_t number = packet->header.sequence;
        switch (packet->header.type) {
            case mach::PacketType::start: brought.start = true; break;
            case mach::PacketType::heartbeat: brought.heartbeat = number; break;
            case mach::PacketType::application_data:
                if (!brought.messages) brought.messages = SequenceRange{number, number};
                brought.messages->last = std::max(brought.messages->last, number);
                break;
        }
    }
    return brought;
}

class Following {
public:
    explicit Following(FeedPicture& picture) : picture_(picture) {}

    void take(const Datagram& datagram) {
        const Brought brought = read(datagram.bytes);
        if (brought.start && picture_.highest != 0) picture_.began_again = true;
        if (brought.messages) take_messages(*brought.messages, datagram.at);
        if (brought.heartbeat) take_heartbeat(*brought.heartbeat, datagram.at);
    }

    std::vector<Gap> end() {
        for (auto& [first, gap] : open_) closed_.push_back(gap);
        std::sort(closed_.begin(), closed_.end(),
                  [](const Gap& one, const Gap& other) { return one.numbers.first < other.numbers.first; });
        return std::move(closed_);
    }

private:
    void take_messages(SequenceRange numbers, Moment at) {
        std::uint64_t& highest = picture_.highest;
        fill(numbers, at);
        if (numbers.last <= highest) return;
        if (numbers.first > highest + 1) open({highest + 1, numbers.first - 1}, at, false);
        picture_.arrivals.push_back({{std::max(numbers.first, highest + 1), numbers.last}, at.ns});
        highest = numbers.last;
        count_datagram(at);
    }

    void take_heartbeat(std::uint64_t number, Moment at) {
        std::uint64_t& highest = picture_.highest;
        if (number < highest) picture_.began_again = true;
        if (number > highest) {
            open({highest + 1, number}, at, true);
            highest = number;
        }
        for (const std::uint64_t first : unsettled_) open_.at(first).settled_ns = at.ns;
        unsettled_.clear();
    }

    void open(SequenceRange numbers, Moment at, bool by_heartbeat) {
        Gap& gap = open_[numbers.first];
        gap.numbers = numbers;
        gap.shown = at;
        gap.by_heartbeat = by_heartbeat;
        since_[numbers.first] = 0;
        unsettled_.insert(numbers.first);
    }

    void count_datagram(Moment at) {
        for (auto it = unsettled_.begin(); it != unsettled_.end();) {
            if (++since_[*it] < datagrams_of_patience) {
                ++it;
                continue;
            }
            open_.at(*it).settled_ns = at.ns;
            since_.erase(*it);
            it = unsettled_.erase(it);
        }
    }

    // What comes behind a later number closes a gap, or a part of one.
    void fill(SequenceRange numbers, Moment at) {
        auto it = open_.upper_bound(numbers.last);
        while (it != open_.begin() && (--it)->second.numbers.last >= numbers.first) {
            const Gap gap = it->second;
            const bool settles = unsettled_.erase(it->first) != 0;
            it = open_.erase(it);
            Gap part = gap;
            part.numbers = {std::max(gap.numbers.first, numbers.first), std::min(gap.numbers.last, numbers.last)};
            part.loss = Loss::late;
            part.came = at;
            closed_.push_back(part);
            if (part.numbers.last < gap.numbers.last) keep(gap, {part.numbers.last + 1, gap.numbers.last}, settles);
            if (gap.numbers.first < part.numbers.first) {
                keep(gap, {gap.numbers.first, part.numbers.first - 1}, settles);
            }
            it = open_.lower_bound(gap.numbers.first);
        }
    }

    void keep(const Gap& gap, SequenceRange numbers, bool unsettled) {
        Gap& rest = open_[numbers.first] = gap;
        rest.numbers = numbers;
        if (!unsettled) return;
        since_[numbers.first] = since_[gap.numbers.first];
        unsettled_.insert(numbers.first);
    }

    FeedPicture& picture_;
    std::map<std::uint64_t, Gap> open_;
    std::map<std::uint64_t, unsigned> since_;  // datagrams, of the unsettled
    std::set<std::uint64_t> unsettled_;
    std::vector<Gap> closed_;
};

// What the venue says about its faults.
struct SaidFaults {
    NumberRanges dropped;
    std::set<std::uint64_t> held;  // first numbers
};

// The number behind `label`; the text is cut behind it.
std::optional<std::uint64_t> number_behind(std::string_view label, std::string_view& text) {
    const std::size_t at = text.find(label);
    if (at == std::string_view::npos) return std::nullopt;
    text.remove_prefix(at + label.size());
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{}) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

void read_fault(std::string_view line, SaidFaults& faults) {
    static constexpr std::string_view beginning = "kavo_me fault: ";
    if (!line.starts_with(beginning)) return;
    line.remove_prefix(beginning.size());
    if (line.starts_with("reordered seq ")) {
        if (const auto first = number_behind("reordered seq ", line)) faults.held.insert(*first);
    }
    if (!line.starts_with("dropped seq ")) return;
    const auto first = number_behind("dropped seq ", line);
    const auto packet = number_behind("(packet ", line);
    const auto messages = number_behind(", ", line);
    if (first && packet && messages && *messages != 0 && *messages < 10'000) {
        faults.dropped.add({*first, *first + *messages - 1});
    }
}

Gap part_of(const Gap& gap, SequenceRange numbers, Loss loss) {
    Gap part = gap;
    part.numbers = numbers;
    part.loss = loss;
    return part;
}

// A stretch that nobody dropped: what was held begins with a number that the venue named, and its length it did not
// tell, so it goes on to the next that is known otherwise.
void explain_rest(const Gap& gap, SequenceRange rest, const SaidFaults& faults, Loss otherwise,
                  std::vector<Gap>& parts) {
    auto held = faults.held.lower_bound(rest.first);
    if (held == faults.held.end() || *held > rest.last) return parts.push_back(part_of(gap, rest, otherwise));
    if (*held > rest.first) parts.push_back(part_of(gap, {rest.first, *held - 1}, otherwise));
    while (held != faults.held.end() && *held <= rest.last) {
        const std::uint64_t first = *held++;
        const std::uint64_t end = held != faults.held.end() && *held <= rest.last ? *held - 1 : rest.last;
        parts.push_back(part_of(gap, {first, end}, Loss::held));
    }
}

std::vector<Gap> explained(const std::vector<Gap>& gaps, const SaidFaults& faults, Loss otherwise) {
    std::vector<Gap> parts;
    for (const Gap& gap : gaps) {
        if (gap.loss == Loss::late) {
            parts.push_back(gap);
            continue;
        }
        const std::vector<SequenceRange> not_dropped = faults.dropped.missing_from(gap.numbers);
        NumberRanges dropped;
        dropped.add(gap.numbers);
        for (const SequenceRange rest : not_dropped) dropped.remove(rest);
        for (const SequenceRange numbers : dropped.all()) parts.push_back(part_of(gap, numbers, Loss::dropped));
        for (const SequenceRange rest : not_dropped) explain_rest(gap, rest, faults, otherwise, parts);
    }
    std::sort(parts.begin(), parts.end(),
              [](const Gap& one, const Gap& other) { return one.numbers.first < other.numbers.first; });
    return parts;
}

}  // namespace

std::uint64_t FeedPicture::came_ns(std::uint64_t number) const {
    const auto it =
        std::lower_bound(arrivals.begin(), arrivals.end(), number,
                         [](const Arrival& arrival, std::uint64_t wanted) { return arrival.numbers.last < wanted; });
    return it == arrivals.end() ? 0 : it->ns;
}

FeedPicture picture_of_feed(const Journal& journal, const FeedCircumstances& around) {
    FeedPicture picture;
    Following following(picture);
    for (const Datagram& datagram : journal.feed) following.take(datagram);
    SaidFaults faults;
    for (const VenueLine& line : journal.venue) read_fault(line.text, faults);
    const Loss otherwise = around.kernel_drops_of_kavo != 0 ? Loss::kernel : Loss::unexplained;
    picture.gaps = explained(following.end(), faults, otherwise);
    return picture;
}

std::string_view name_of(Loss loss) {
    switch (loss) {
        case Loss::dropped: return "planned: dropped by the bench";
        case Loss::held: return "planned: held back by the bench and never released";
        case Loss::late: return "planned: late, held back behind the next datagram";
        case Loss::kernel: return "kernel";
        case Loss::unexplained: return "unexplained";
    }
    return "";
}

}  // namespace kavo::companion

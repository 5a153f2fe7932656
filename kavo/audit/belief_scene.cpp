#include "kavo/audit/belief_scene.h"

#include <algorithm>
#include <limits>

#include "engine/meo_layout.h"
#include "kavo/basics/now.h"

namespace kavo::companion {

namespace {

constexpr std::uint64_t saying_ns = 250 * ns_per_ms;  // from knowing a thing to having written it down

}  // namespace

bool Believer::must_know(std::uint64_t sequence, std::uint64_t given_ns, std::uint64_t read_ns) const {
    const bool limits_known = only_life || begins_ns != 0;
    if (!limits_known) return false;
    if (!first_life && given_ns < begins_ns) return false;  // it may remember all that from elsewhere
    if (sequence <= applied) return true;
    return read_ns != 0 && read_ns + saying_ns <= ends_ns;
}

BeliefScene::BeliefScene(const Journal& run, const Beliefs& all, Verdict& verdict)
    : journal(run),
      beliefs(all),
      around(feed_circumstances(run)),
      streams(user_streams(run)),
      list(run, around, verdict) {
    for (const OrderBelief& belief : all.orders) {
        const UserStream* stream = stream_of(belief.said);
        if (stream == nullptr) continue;
        Believer& believer = believer_of(belief.said, *stream);
        believer.orders.push_back(&belief);
        believer.applied = std::max(believer.applied, belief.sequence.value_or(0));
    }
    for (const FillBelief& belief : all.fills) {
        if (const UserStream* stream = stream_of(belief.said)) {
            believer_of(belief.said, *stream).fills.push_back(&belief);
        }
    }
    set_limits();
}

// Of the only user there is, when the line names none.
const UserStream* BeliefScene::stream_of(const Said& said) {
    const bool only_one = said.user.empty() && streams.size() == 1;
    const auto named = std::find_if(streams.begin(), streams.end(),
                                    [&](const UserStream& it) { return only_one || it.user == said.user; });
    if (named != streams.end() && !named->began_again) return &*named;
    tell_nameless(said);
    return nullptr;
}

void BeliefScene::tell_nameless(const Said& said) {
    if (said.user == journal.facts.house || !nameless_.insert(said.user).second) return;
    Finding finding;
    finding.rule = &belief_log;
    finding.expected = "the name of a user who has logged in";
    finding.got = "line " + std::to_string(said.line) + " of the client's log" +
                  (said.user.empty() ? " names no user" : " names " + in_quotes(said.user));
    finding.where.user = said.user;
    const bool again = std::any_of(streams.begin(), streams.end(), [](const UserStream& it) { return it.began_again; });
    list.doubtful(std::move(finding), again ? "a stream began again at 1 in the middle of the run"
                                            : "the client's log does not say whose beliefs these are");
}

Believer& BeliefScene::believer_of(const Said& said, const UserStream& stream) {
    Believer& believer = by_life_[{&stream, said.life}];
    believer.stream = &stream;
    believer.life = said.life;
    return believer;
}

// How long each life lasts, by all the lines of its log.
void BeliefScene::set_limits() {
    const auto take = [&](const Said& said) {
        for (auto& [key, believer] : by_life_) {
            const bool its_own = said.user.empty() || said.user == believer.stream->user;
            if (!its_own || said.life != believer.life || said.t_ns == 0) continue;
            const std::uint64_t begins = believer.begins_ns;
            believer.begins_ns = begins == 0 ? said.t_ns : std::min(begins, said.t_ns);
            believer.ends_ns = std::max(believer.ends_ns, said.t_ns);
        }
    };
    for (const OrderBelief& belief : beliefs.orders) take(belief.said);
    for (const FillBelief& belief : beliefs.fills) take(belief.said);
    for (const BookBelief& belief : beliefs.books) take(belief.said);
    std::map<const UserStream*, unsigned> lives;
    for (const auto& [key, believer] : by_life_) ++lives[key.first];
    for (auto& [key, believer] : by_life_) {
        believer.only_life = lives[key.first] == 1;
        believer.first_life = believers.empty() || believers.back().stream != believer.stream;
        // Without times nobody knows when a life ended, but for the last, which lasts as long as the connection.
        if (believer.ends_ns == 0 && believer.only_life) {
            const std::uint64_t closed = believer.stream->closed_ns;
            believer.ends_ns = closed != 0 ? closed : around.ended_ns;
        }
        believers.push_back(std::move(believer));
    }
}

bool BeliefScene::may_be_several(const Believer& believer) const {
    return !beliefs.tells_beginnings && !believer.stream->from_nothing_ns.empty();
}

void BeliefScene::tell_defects() {
    const auto tell = [&](const std::string& words, bool doubtful) {
        Finding finding;
        finding.rule = &belief_log;
        finding.expected = "one JSON object a line, with an event of docs/beliefs.md";
        finding.got = words;
        if (doubtful)
            list.doubtful(std::move(finding), words);
        else
            list.remark(std::move(finding));
    };
    for (const std::string& words : beliefs.defects) tell(words, true);
    for (const std::string& words : beliefs.unknowns) tell(words, false);
}

std::string wire_id(const std::string& id, const OrderSteps& known) {
    std::string cut = id.substr(0, meo::client_order_id_size);
    if (known.contains(id) || known.contains(cut)) return cut;
    std::string bytes;
    for (std::size_t i = 0; i < id.size(); ++i) {
        const auto code = static_cast<unsigned char>(id[i]);
        const bool two = (code == 0xc2 || code == 0xc3) && i + 1 < id.size();
        if (code >= 0x80 && !two) return cut;
        bytes += two ? static_cast<char>((code & 3) << 6 | (static_cast<unsigned char>(id[++i]) & 0x3f)) : id[i];
    }
    return bytes.substr(0, meo::client_order_id_size);
}

}  // namespace kavo::companion

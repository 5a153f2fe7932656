// What a user asks for when it logs in, held against what it was given before.
#include <algorithm>
#include <optional>
#include <vector>

#include "client/packets.h"
#include "kavo/audit/session_rules.h"
#include "kavo/audit/stream_position.h"
#include "kavo/audit/wording.h"

namespace kavo::companion {

namespace {

using Kind = ClientEvent::Kind;

constexpr std::uint64_t notice_limit_ns = 5'000 * ns_per_ms;
constexpr std::uint64_t time_to_act_ns =
    1'000 * ns_per_ms;  // whoever had less cannot have been expected to do anything

constexpr char refused_number = static_cast<char>(esesm::LoginStatus::invalid_start_sequence);
constexpr char let_in = static_cast<char>(esesm::LoginStatus::successful);

class StreamFollower {
public:
    StreamFollower(const Circumstances& circumstances, Verdict& verdict)
        : circumstances_(circumstances), verdict_(verdict) {}

    void take(const ClientEvent& event) {
        if (due() && event.at.ns > deadline_ns()) miss_hole(deadline_ns());
        switch (event.kind) {
            case Kind::request: has_traded_ = true; break;
            case Kind::login: return take_login(event);
            case Kind::answer: return take_answer(event);
            case Kind::message: return take_message(event);
            case Kind::closed: return take_end(event);
            default: break;
        }
    }
    void end() {
        const std::uint64_t end_ns = circumstances_.end_ns();
        if (due()) miss_hole(std::min(end_ns, deadline_ns()));
    }

private:
    struct Hole {
        std::uint64_t missing = 0;
        const ClientEvent* shown_by = nullptr;
        bool left = false;  // that connection has ended, and with it the client's time
    };
    struct Asked {
        const Conversation* conversation = nullptr;
        std::uint64_t number = 0;
        auto operator<=>(const Asked&) const = default;
    };

    bool due() const { return hole_ && !hole_->left; }
    std::uint64_t deadline_ns() const { return hole_->shown_by->read_ns + notice_limit_ns + crossing_ns; }

    void take_login(const ClientEvent& event) {
        pending_.push_back({event.conversation, event.number});
        const bool asks_again = refused_ && event.number == last_asked_;
        last_asked_ = event.number;
        if (stream_.known() && !asks_again) judge_number(event);
        if (due()) count_slack(verdict_, rule(SessionRule::hole), since_hole(event.at.ns), notice_limit_ns);
        hole_.reset();
    }

    std::uint64_t since_hole(std::uint64_t now_ns) const { return now_ns - std::min(now_ns, hole_->shown_by->read_ns); }

    void judge_number(const ClientEvent& login) {
        const std::uint64_t asked = login.number;
        if (asked == 0) return asks_for_the_end(login);
        if (hole_ && asked == stream_.behind_all() && asked > hole_->missing) return passes_over_hole(login);
        if (asked > stream_.next()) return asks_for_too_much(login);
        const std::uint64_t least = stream_.least_next(login.at.ns);
        if (asked == 1 && least > 1) return asks_for_everything(login);
        if (asked < least) asks_again_for_what_it_has(login, least);
    }

    // Without an order, and with nothing lost, nothing has come of it.
    void asks_for_the_end(const ClientEvent& login) {
        Finding found = number_finding(login);
        if (!has_traded_) found.grade = Grade::remark;
        found.got = "a login that asks for the end of the stream, so that whatever was missed stays missed";
        if (found.grade == Grade::remark && said_end_) return;
        said_end_ = said_end_ || found.grade == Grade::remark;
        verdict_.findings.push_back(found);
    }

    void asks_for_too_much(const ClientEvent& login) {
        Finding found = number_finding(login);
        found.got = "a login that asks for " + std::to_string(login.number) + ": what comes before it is never heard";
        verdict_.findings.push_back(found);
    }

    void asks_for_everything(const ClientEvent& login) {
        if (said_everything_) return;
        said_everything_ = true;
        Finding found = number_finding(login);
        found.grade = Grade::remark;
        found.got = "a login that asks for everything again";
        verdict_.findings.push_back(found);
    }

    void asks_again_for_what_it_has(const ClientEvent& login, std::uint64_t least) {
        Finding found = number_finding(login);
        found.got = "a login that asks for " + std::to_string(login.number) + ": " +
                    counted(least - login.number, "message") + " that it has read are told again";
        verdict_.findings.push_back(found);
    }

    Finding number_finding(const ClientEvent& login) const {
        Finding found = finding_at(rule(SessionRule::next_number), login);
        found.expected = "a login that asks for " + std::to_string(stream_.next());
        found.truth = "the last number given to the client was " + std::to_string(stream_.behind_all() - 1);
        found.where.stream_number = login.number;
        return found;
    }

    void passes_over_hole(const ClientEvent& login) {
        Finding found = hole_finding();
        found.got = "a login at " + circumstances_.at(login.at.ns) + " that asks for " + std::to_string(login.number) +
                    ", behind the hole";
        verdict_.findings.push_back(found);
    }

    Finding hole_finding() const {
        Finding found = finding_at(rule(SessionRule::hole), *hole_->shown_by);
        found.expected = "a login that asks for " + std::to_string(hole_->missing) + " within 5,000 ms of number " +
                         std::to_string(hole_->shown_by->number) + " at " + circumstances_.at(hole_->shown_by->at.ns);
        found.truth = "number " + std::to_string(hole_->missing) + " was never given to the client";
        return found;
    }

    // No login came until then, though the connection stood. A run that ends before the limit leaves it open.
    void miss_hole(std::uint64_t until_ns) {
        const std::uint64_t had = since_hole(until_ns);
        Finding found = hole_finding();
        found.got = "no login for " + ms_text(had);
        found.because = circumstances_.machine(hole_->shown_by->at.ns, until_ns);
        if (had < notice_limit_ns && found.because.empty())
            found.because = "the run was over " + ms_text(had) + " later";
        if (!found.because.empty()) found.grade = Grade::inconclusive;
        hole_.reset();
        if (had >= time_to_act_ns) verdict_.findings.push_back(found);
    }

    void take_answer(const ClientEvent& event) {
        std::erase(pending_, Asked{event.conversation, event.asked});
        refused_ = event.status != let_in;
        if (!refused_) stream_.let_in(event.asked, event.number);
        if (event.status != refused_number) return;
        stream_.forget();
        hole_.reset();
    }

    // A login that is under way already asks for what is missing.
    void take_message(const ClientEvent& event) {
        const bool jumps = stream_.given(event) && stream_.known();
        if (hole_ && hole_->missing < stream_.next()) hole_.reset();
        const bool asked = std::any_of(pending_.begin(), pending_.end(), [&](const Asked& login) {
            return login.number != 0 && login.number <= stream_.next();
        });
        if (jumps && !hole_ && !asked) hole_ = Hole{stream_.next(), &event};
    }

    // Whoever has left asks for the missing number when it comes back, whenever that is.
    void take_end(const ClientEvent& event) {
        stream_.closed(*event.conversation, event.at.ns);
        std::erase_if(pending_, [&](const Asked& login) { return login.conversation == event.conversation; });
        if (hole_ && hole_->shown_by->conversation == event.conversation) hole_->left = true;
    }

    const Circumstances& circumstances_;
    Verdict& verdict_;
    StreamPosition stream_;
    std::optional<Hole> hole_;
    std::vector<Asked> pending_;  // logins without an answer
    std::uint64_t last_asked_ = 0;
    bool refused_ = false;  // the latest login
    bool has_traded_ = false;
    bool said_end_ = false;
    bool said_everything_ = false;
};

}  // namespace

void audit_stream(const EventList& user, const Circumstances& circumstances, Verdict& verdict) {
    StreamFollower audit(circumstances, verdict);
    for (const ClientEvent* event : user) audit.take(*event);
    audit.end();
}

}  // namespace kavo::companion

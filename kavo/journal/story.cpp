#include "kavo/journal/story.h"

#include <algorithm>
#include <set>

#include "client/feed_messages.h"
#include "client/transcript.h"
#include "kavo/journal/packet_story.h"

namespace kavo::companion {

namespace {

using Kind = StoryEntry::Kind;

// All ids under which an order has stood: those of the client, and the venue's own.
class OrderIds {
public:
    explicit OrderIds(const std::string& id) { names_.insert(id); }

    // Learns from an entry; true when there was something to learn.
    bool learn(const StoryEntry& entry) {
        if (entry.rejected || entry.order_id == 0 || !concerns(entry)) return false;
        bool learned = numbers_.insert(entry.order_id).second;
        if (!entry.order.empty()) learned |= names_.insert(entry.order).second;
        return learned;
    }
    bool concerns(const StoryEntry& entry) const {
        return numbers_.contains(entry.order_id) || (!entry.order.empty() && names_.contains(entry.order)) ||
               (!entry.original.empty() && names_.contains(entry.original));
    }

private:
    std::set<std::string> names_;
    std::set<std::uint64_t> numbers_;
};

class Teller {
public:
    Teller(const Journal& journal, const StoryWishes& wishes) : journal_(journal), wishes_(wishes) {}

    void tell(const std::function<void(const StoryEntry& entry)>& tell) {
        for (const Conversation& conversation : journal_.conversations) take(conversation);
        const bool nothing_special = !wishes_.user && !wishes_.order && !wishes_.feed && !wishes_.rejected;
        if (nothing_special) take_what_is_nobodys();
        if (wishes_.order) keep_order();
        if (wishes_.all || wishes_.feed || wishes_.order) take_feed();
        std::ranges::stable_sort(entries_, {}, [](const StoryEntry& entry) {
            return std::pair{entry.at.ns, entry.at.packet};
        });
        for (const StoryEntry& entry : entries_) tell(entry);
    }

private:
    void add(StoryEntry entry) {
        if (entry.at.ns < wishes_.from_ns || entry.at.ns > wishes_.to_ns) return;
        if (wishes_.rejected && !entry.rejected) return;
        if (entry.kind != Kind::feed && wishes_.feed && !wishes_.user && !wishes_.order) return;
        entries_.push_back(std::move(entry));
    }

    void take(const Conversation& conversation) {
        if (wishes_.user && conversation.user != *wishes_.user) return;
        const std::string service = conversation.service == Service::orders ? "order entry" : "the recovery service";
        add({.kind = Kind::opened,
             .at = conversation.opened,
             .user = conversation.user,
             .by_user = true,
             .what = "connects to " + service + " (connection " + std::to_string(conversation.number) + ")"});
        for (const WirePacket& packet : conversation.with_client) {
            StoryEntry entry = story_of(packet, conversation.service);
            entry.user = conversation.user;
            if (wishes_.all || !is_commonplace(packet, conversation.service)) add(std::move(entry));
        }
        if (conversation.closed.ns == 0) return;
        add({.kind = Kind::closed,
             .at = conversation.closed,
             .user = conversation.user,
             .by_user = conversation.ended_by == EndedBy::client,
             .what = std::string(conversation.reset ? "resets" : "closes") + " connection " +
                     std::to_string(conversation.number) +
                     (conversation.ended_by == EndedBy::relay ? ", by the relay" : "")});
    }

    void take_what_is_nobodys() {
        for (const VenueLine& line : journal_.venue) {
            add({.kind = Kind::venue_line, .at = {line.t_ns, 0}, .what = std::string(line.text)});
        }
        for (const Note& note : journal_.notes) add({.kind = Kind::note, .at = {note.t_ns, 0}, .what = note.json});
    }

    // Ids lead to further ids, in both directions of time.
    void keep_order() {
        OrderIds ids(*wishes_.order);
        for (bool learned = true; learned;) {
            learned = false;
            for (const StoryEntry& entry : entries_) learned |= ids.learn(entry);
        }
        std::erase_if(entries_, [&ids](const StoryEntry& entry) { return !ids.concerns(entry); });
        for (const StoryEntry& entry : entries_) {
            if (entry.order_id != 0) order_ids_.insert(entry.order_id);
        }
    }

    void take_feed() {
        for (const Datagram& datagram : journal_.feed) {
            ByteView rest = datagram.bytes;
            while (const auto packet = client::read_feed_packet(rest)) {
                if (is_wished(*packet)) add(feed_entry(*packet, datagram.at));
            }
        }
    }

    bool is_wished(const client::FeedPacket& packet) const {
        const std::uint64_t number = packet.header.sequence;
        if (packet.message.empty()) return wishes_.all;
        if (wishes_.feed) return number >= wishes_.feed->first && number <= wishes_.feed->second;
        return wishes_.all || order_ids_.contains(order_of(packet.message));
    }

    static StoryEntry feed_entry(const client::FeedPacket& packet, Moment at) {
        const std::string number = std::to_string(packet.header.sequence);
        const bool start = packet.header.type == mach::PacketType::start;
        return {.kind = Kind::feed,
                .at = at,
                .what = !packet.message.empty() ? number + ": " + client::dom_text(packet.message)
                        : start                 ? "start"
                                                : "heartbeat " + number,
                .order_id = order_of(packet.message),
                .feed_number = packet.header.sequence};
    }

    // 0 for a message about none.
    static std::uint64_t order_of(ByteView message) {
        if (const auto m = client::read_add_order(message)) return m->order_id;
        if (const auto m = client::read_modify_order(message)) return m->order_id;
        if (const auto m = client::read_delete_order(message)) return m->order_id;
        if (const auto m = client::read_order_executed(message)) return m->order_id;
        return 0;
    }

    const Journal& journal_;
    const StoryWishes& wishes_;
    std::vector<StoryEntry> entries_;
    std::set<std::uint64_t> order_ids_;
};

}  // namespace

void tell_story(const Journal& journal, const StoryWishes& wishes,
                const std::function<void(const StoryEntry& entry)>& tell) {
    Teller(journal, wishes).tell(tell);
}

}  // namespace kavo::companion

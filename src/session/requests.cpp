// A client's requests: recognised, handed to the engine, answered, and sometimes the last thing its connection sees.

#include "session/order_entry.h"

namespace kavo {

namespace {

constexpr std::size_t type_size = meo::layout::type.size;
constexpr std::string_view scripted_disconnect_text =
    "scripted: the client must log in again with its next expected sequence";

}  // namespace

void OrderEntry::dispatch(ClientHandle handle, ByteView message) {
    if (message.size() < type_size) return;
    answers_.clear();
    if (!handle_request(handle, message)) return end_bad_session(handle, message);
    deliver(client(handle), answers_);
    feed_.flush();
    disconnect_when_scripted(handle);
}

// False for a type that nobody knows and for a message that is too short for its type.
bool OrderEntry::handle_request(ClientHandle handle, ByteView message) {
    if (const auto request = meo::read_new_order(message)) {
        engine_.new_order(handle, *request, answers_);
        return true;
    }
    if (const auto request = meo::read_cancel(message)) {
        engine_.cancel(handle, *request, answers_);
        return true;
    }
    if (const auto request = meo::read_replace(message)) {
        engine_.replace(handle, *request, answers_);
        return true;
    }
    return false;
}

void OrderEntry::end_bad_session(ClientHandle handle, ByteView message) {
    MeoClient& sender = client(handle);
    const std::string type(as_text(message.first(type_size)));
    commentary_.say("bench: bad MEO message '%s' (%zu bytes) from %s — goodbye\n", type.c_str(), message.size(),
                    sender.username.c_str());
    send(sender, build(esesm::Goodbye{esesm::GoodbyeReason::bad_packet, "unknown or malformed application message"}));
    drop(handle, "bad packet", Announce::yes);
}

void OrderEntry::disconnect_when_scripted(ClientHandle handle) {
    if (!bench_.takes_disconnect()) return;
    drop(handle, bench_.disconnect_after != 0 ? scripted_disconnect_text : "driven", Announce::yes);
}

}  // namespace kavo

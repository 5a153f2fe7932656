#include "memory/memory_user.h"

#include <utility>

namespace kavo {

void MemoryUser::connect() {
    connection_ = venue_.connect();
    session.connected(venue_.now_ms());
    session.log_in();
}

void MemoryUser::exchange() {
    if (!connection_) connect();
    session.receive(connection_->take(), venue_.now_ms());
    session.check_time(venue_.now_ms());
    connection_->send(session.to_send());
    session.sent(session.to_send().size(), venue_.now_ms());
    if (connection_->closed() || session.end() != client::Session::End::none) break_off();
}

void MemoryUser::break_off() {
    if (!connection_) return;
    std::exchange(connection_, std::nullopt)->close();
    session.disconnected();
}

}  // namespace kavo

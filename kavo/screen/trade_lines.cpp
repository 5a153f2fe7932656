#include "kavo/screen/trade_lines.h"

#include <nlohmann/json.hpp>

#include "client/transcript.h"
#include "kavo/basics/now.h"
#include "kavo/screen/json_line.h"
#include "kavo/screen/wire_json.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::ordered_json;

std::string json_line(const char* event, const Json& fields) {
    return kavo::companion::json_line(now_ns(), event, fields) + "\n";
}

}  // namespace

void TradeLines::asked(const std::string& line) {
    if (!json_) print_("  -> " + line + "\n");
}

void TradeLines::sent(const client::Login& login) {
    if (!json_) return asked("login " + login.username);
    print_(json_line("sent", {{"type", "login"}, {"user", login.username}, {"from", login.requested_sequence}}));
}

void TradeLines::sent(const client::NewOrder& order) {
    if (!json_) return;
    print_(json_line("sent", {{"type", "new"},
                              {"id", order.client_order_id},
                              {"side", order.order_flags == 0 ? "B" : "S"},
                              {"quantity", order.quantity},
                              {"price", price_number(order.price)},
                              {"symbol", order.product_id},
                              {"mpid", order.mpid}}));
}

void TradeLines::sent(const client::Replace& request) {
    if (!json_) return;
    print_(json_line("sent", {{"type", "replace"},
                              {"id", request.client_order_id},
                              {"orig_id", request.orig_client_order_id},
                              {"quantity", request.quantity},
                              {"price", price_number(request.price)},
                              {"mpid", request.mpid}}));
}

void TradeLines::sent(const client::Cancel& request) {
    if (!json_) return;
    print_(json_line("sent", {{"type", "cancel"},
                              {"id", request.client_order_id},
                              {"orig_id", request.orig_client_order_id},
                              {"symbol", request.product_id},
                              {"mpid", request.mpid}}));
}

void TradeLines::sent_logout() {
    print_(json_ ? json_line("sent", {{"type", "logout"}}) : "  -> logout\n");
}

void TradeLines::heard(ByteView packet) {
    print_(json_ ? json_line("heard", packet_json(packet)) : "  <- " + client::packet_text(packet) + "\n");
}

void TradeLines::refused(const std::string& line, const std::string& reason, const std::string& words) {
    print_(json_ ? json_line("refused", {{"line", line}, {"reason", reason}}) : words);
}

}  // namespace kavo::companion

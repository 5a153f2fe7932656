#include "kavo/screen/orders_by_hand.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "client/packets.h"
#include "client/responses.h"
#include "client/wire_client.h"
#include "kavo/basics/problem.h"
#include "kavo/screen/prompt.h"
#include "kavo/screen/trade_lines.h"

namespace kavo::companion {

const char* const trade_commands =
    "  buy ID QUANTITY PRICE [SYMBOL]      a limit order; SYMBOL is its number on the feed, or its name\n"
    "  sell ID QUANTITY PRICE [SYMBOL]\n"
    "  buy ID QUANTITY market [SYMBOL]     a market order\n"
    "  replace ID NEW_ID QUANTITY PRICE    QUANTITY is the new total, what has executed included\n"
    "  cancel ID [SYMBOL]\n"
    "  wait SECONDS                        keeps listening meanwhile\n"
    "  quit                                logs out; so does the end of the input\n";

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds answer_time{200};
constexpr milliseconds farewell_time{2000};
constexpr milliseconds between_heartbeats{500};
constexpr const char* closed_text = "the venue has closed the connection";

client::WireClient connect_to(std::uint16_t port) {
    try {
        return client::WireClient(port);
    } catch (const std::runtime_error& error) {
        throw Problem(Status::bench,
                      std::string(error.what()) +
                          ": start a bench with `kavo run`, and name its port of order entry with --port");
    }
}

// Why a packet is no accepted login; empty for one that is.
std::string refusal(ByteView packet) {
    if (client::is_accepted_login(packet)) return {};
    const auto response = client::read_login_response(packet);
    return response ? std::string(esesm::login_status_text(response->login_status)) : "refused";
}

class Trader {
public:
    explicit Trader(const TradeWishes& wishes)
        : wishes_(wishes),
          client_(connect_to(wishes.port)),
          prompt_(!wishes.json && isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0, wishes.user + "> ",
                  client_.socket(), [this] { return listen(milliseconds(0)); }),
          lines_(wishes.json, [this](const std::string& lines) { prompt_.print(lines); }) {}

    void log_in();
    void take_commands();
    void log_out();
    void wait_for_answer();
    // Shows what the venue says for as long as told, and keeps the connection alive; false when that is closed.
    bool listen(milliseconds longest);
    bool closed() const { return client_.closed(); }

private:
    bool carry_out(const std::string& line);
    bool enter_order(const std::string& verb, const std::string& id, std::istringstream& words);
    std::uint32_t symbol_from(std::istringstream& words);
    void show(ByteView packet);
    void keep_alive();

    template <typename Request>
    void send(const Request& request) {
        client_.send(request);
        lines_.sent(request);
    }

    const TradeWishes& wishes_;
    client::WireClient client_;
    Prompt prompt_;
    TradeLines lines_;
    std::map<std::string, std::uint32_t, std::less<>> symbols_;  // by name, as far as the stream has told
    steady_clock::time_point heartbeat_due_ = steady_clock::now() + between_heartbeats;
};

bool Trader::listen(milliseconds longest) {
    const auto deadline = steady_clock::now() + longest;
    // What has come along with a packet is shown with it: nothing more need come to wake whoever waits at the socket.
    bool heard = false;
    do {
        keep_alive();
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
        const auto packet = client_.next_packet_of_any_kind(std::clamp(left, milliseconds(0), between_heartbeats));
        heard = packet.has_value();
        if (heard) show(*packet);
        if (client_.closed()) return false;
    } while (heard || steady_clock::now() < deadline);
    return true;
}

void Trader::keep_alive() {
    if (steady_clock::now() < heartbeat_due_) return;
    client_.send_heartbeat();
    heartbeat_due_ = steady_clock::now() + between_heartbeats;
}

void Trader::show(ByteView packet) {
    lines_.heard(packet);
    const auto data = client::read_sequenced(packet);
    if (!data) return;
    if (const auto update = client::read_symbol_update(data->message)) {
        symbols_.emplace(update->symbol, update->product_id);
    }
}

// Returns when the venue has let the user in.
void Trader::log_in() {
    client::Login login = client::login(wishes_.user, wishes_.from);
    login.computer_id = wishes_.computer;
    client_.log_in(login);
    lines_.sent(login);
    const auto answer = client_.next_packet();
    if (!answer) throw Problem(Status::bench, client_.closed() ? closed_text : "the venue does not answer the login");
    show(*answer);
    if (const std::string reason = refusal(*answer); !reason.empty()) {
        throw Problem(Status::usage, "the venue has not let " + wishes_.user + " in: " + reason);
    }
    wait_for_answer();
}

// A script's next line comes at once, so the answer has its time; where somebody types, or a program reads as well, the
// prompt listens to it.
void Trader::wait_for_answer() {
    if (!prompt_.edited() && !wishes_.json) listen(answer_time);
}

void Trader::log_out() {
    lines_.sent_logout();
    client_.send_packet('X');
    listen(farewell_time);  // the venue closes; a client that is faster leaves without having said goodbye
}

void Trader::take_commands() {
    while (const auto line = closed() ? std::nullopt : prompt_.next_line()) {
        if (*line == "quit") return;
        if (line->empty()) continue;
        if (!line->starts_with("wait")) lines_.asked(*line);
        try {
            if (!carry_out(*line)) {
                lines_.refused(*line, "no such command", std::string("commands:\n") + trade_commands);
            }
        } catch (const Problem& problem) {
            lines_.refused(*line, problem.what(), std::string(problem.what()) + "\n");
        } catch (const std::exception&) {
            lines_.refused(*line, "that is no number", "that is no number: " + *line + "\n");
        }
        wait_for_answer();
    }
}

// False for a command that nobody knows.
bool Trader::carry_out(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string id;
    words >> verb >> id;
    if (verb == "buy" || verb == "sell") return enter_order(verb, id, words);
    if (verb == "replace") {
        std::string new_id;
        std::uint32_t quantity = 0;
        std::string price;
        if (!(words >> new_id >> quantity >> price)) return false;
        send(client::replace(id, new_id).participant(wishes_.mpid).shares(quantity).at(price));
    } else if (verb == "cancel" && !id.empty()) {
        send(client::cancel(id).participant(wishes_.mpid).product(symbol_from(words)));
    } else if (verb == "wait") {
        listen(milliseconds(static_cast<int>(std::atof(id.c_str()) * 1000)));
    } else {
        return false;
    }
    return true;
}

bool Trader::enter_order(const std::string& verb, const std::string& id, std::istringstream& words) {
    std::uint32_t quantity = 0;
    std::string price;
    if (!(words >> quantity >> price)) return false;
    client::NewOrder order = verb == "buy" ? client::buy(id) : client::sell(id);
    order = order.participant(wishes_.mpid).shares(quantity).product(symbol_from(words));
    send(price == "market" ? order.market() : order.at(price));
    return true;
}

// A name is one that the stream has told, or is just about to: it begins with the names.
std::uint32_t Trader::symbol_from(std::istringstream& words) {
    std::string symbol;
    if (!(words >> symbol)) symbol = wishes_.symbol;
    std::uint32_t number = 0;
    const char* end = symbol.data() + symbol.size();
    if (std::from_chars(symbol.data(), end, number).ptr == end) return number;
    const auto deadline = steady_clock::now() + answer_time;
    while (!symbols_.contains(symbol) && steady_clock::now() < deadline && listen(milliseconds(10))) continue;
    const auto found = symbols_.find(symbol);
    if (found != symbols_.end()) return found->second;
    throw Problem(Status::usage, "no symbol " + symbol +
                                     " has been told so far: name it by its number on the feed, or come with --from 1");
}

}  // namespace

void trade_by_hand(const TradeWishes& wishes) {
    Trader trader(wishes);
    trader.log_in();
    trader.take_commands();
    if (trader.closed()) throw Problem(Status::bench, closed_text);
    trader.log_out();
}

}  // namespace kavo::companion

// Sends orders by hand: logs in, takes one command a line from standard input, and prints what is sent and what comes
// back in plain words.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "client/packets.h"
#include "client/transcript.h"
#include "client/wire_client.h"
#include "session/esesm.h"

namespace {

using namespace kavo::client;
using std::chrono::milliseconds;

constexpr const char* commands_text =
    "  buy ID QUANTITY PRICE [SYMBOL]      a limit order; SYMBOL is its number on the feed, 1 if left out\n"
    "  sell ID QUANTITY PRICE [SYMBOL]\n"
    "  buy ID QUANTITY market [SYMBOL]     a market order\n"
    "  replace ID NEW_ID QUANTITY PRICE    QUANTITY is the new total, what has executed included\n"
    "  cancel ID [SYMBOL]\n"
    "  wait SECONDS                        keeps listening meanwhile\n"
    "  quit                                logs out; so does the end of the input\n";

constexpr milliseconds answer_time{200};
constexpr const char* closed_text = "the venue has closed the connection";

struct Arguments {
    std::uint16_t port = 28700;
    std::string user = "demo";
    std::uint64_t from = 0;
};

[[noreturn]] void usage() {
    std::fprintf(stderr, "usage: meo_client [--port PORT] [--user NAME] [--from SEQUENCE]\ncommands:\n%s",
                 commands_text);
    std::exit(2);
}

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view flag = argv[i];
        if (flag == "--port") {
            arguments.port = static_cast<std::uint16_t>(std::atoi(argv[i + 1]));
        } else if (flag == "--user") {
            arguments.user = argv[i + 1];
        } else if (flag == "--from") {
            arguments.from = std::strtoull(argv[i + 1], nullptr, 10);
        } else {
            usage();
        }
    }
    if (argc % 2 == 0) usage();
    return arguments;
}

// Prints what the venue says for as long as told, and keeps the connection alive.
void listen(WireClient& client, milliseconds longest) {
    const auto deadline = std::chrono::steady_clock::now() + longest;
    do {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
        const auto packet = client.next_packet_of_any_kind(std::clamp(left, milliseconds(0), milliseconds(500)));
        if (client.closed()) return;
        if (packet) {
            std::printf("  <- %s\n", packet_text(*packet).c_str());
        } else {
            client.send_heartbeat();
        }
    } while (std::chrono::steady_clock::now() < deadline);
}

std::uint32_t symbol_from(std::istringstream& words) {
    std::uint32_t symbol = 1;
    return words >> symbol ? symbol : 1;
}

// False for a command that nobody knows.
bool carry_out(WireClient& client, const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string id;
    std::string price;
    std::uint32_t quantity = 0;
    words >> verb >> id;
    if (verb == "buy" || verb == "sell") {
        if (!(words >> quantity >> price)) return false;
        const NewOrder order = (verb == "buy" ? buy(id) : sell(id)).shares(quantity).product(symbol_from(words));
        client.send(price == "market" ? order.market() : order.at(price));
    } else if (verb == "replace") {
        std::string new_id;
        if (!(words >> new_id >> quantity >> price)) return false;
        client.send(replace(id, new_id).shares(quantity).at(price));
    } else if (verb == "cancel" && !id.empty()) {
        client.send(cancel(id).product(symbol_from(words)));
    } else if (verb == "wait") {
        listen(client, milliseconds(static_cast<int>(std::atof(id.c_str()) * 1000)));
    } else {
        return false;
    }
    return true;
}

// Waits for a line of input, and listens while none comes. False when there is none to come, and when the venue has
// gone: then nobody is left to take what the line asks for.
bool next_line(WireClient& client, std::string& line) {
    while (!client.closed() && std::cin.rdbuf()->in_avail() <= 0) {
        pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {client.socket(), POLLIN, 0}};
        poll(waiting, 2, 500);
        if (waiting[1].revents != 0 || waiting[0].revents == 0) listen(client, milliseconds(0));
        if (waiting[0].revents != 0) break;
    }
    return !client.closed() && std::getline(std::cin, line);
}

// Why a packet is no accepted login; empty for one that is.
std::string refusal(kavo::ByteView packet) {
    if (is_accepted_login(packet)) return {};
    const auto response = read_login_response(packet);
    return response ? std::string(kavo::esesm::login_status_text(response->login_status)) : "refused";
}

// Returns when the venue has let the user in.
void log_in(WireClient& client, const Arguments& arguments) {
    client.log_in(login(arguments.user, arguments.from));
    std::printf("  -> login %s\n", arguments.user.c_str());
    const auto answer = client.next_packet();
    if (!answer) throw std::runtime_error(client.closed() ? closed_text : "the venue does not answer the login");
    std::printf("  <- %s\n", packet_text(*answer).c_str());
    if (const std::string reason = refusal(*answer); !reason.empty()) {
        throw std::runtime_error("the venue has not let " + arguments.user + " in: " + reason);
    }
}

void take_commands(WireClient& client) {
    for (std::string line; next_line(client, line) && line != "quit";) {
        if (line.empty()) continue;
        if (!line.starts_with("wait")) std::printf("  -> %s\n", line.c_str());
        try {
            if (!carry_out(client, line)) std::printf("commands:\n%s", commands_text);
        } catch (const std::exception&) {
            std::printf("that is no number: %s\n", line.c_str());
        }
        listen(client, answer_time);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    const Arguments arguments = parse(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::ios::sync_with_stdio(false);  // so that it is known whether a line is waiting
    WireClient client(arguments.port);
    log_in(client, arguments);
    listen(client, answer_time);
    take_commands(client);
    if (client.closed()) throw std::runtime_error(closed_text);
    std::printf("  -> logout\n");
    client.send_packet('X');
    listen(client, answer_time);  // the venue closes; a client that is faster leaves without having said goodbye
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "meo_client: %s\n", error.what());
    return 1;
}

#include "market.h"

#include <fcntl.h>
#include <unistd.h>

#include <map>
#include <memory>

#include "client/requests.h"
#include "feed/dom_messages.h"

namespace kavo::benchmarks {

namespace {

constexpr std::size_t header_size = esesm::layout::packet::header_size;

}  // namespace

Transport nowhere() {
    return {
        .accept = [](bool&) { return no_socket; },
        .read = [](int, Bytes&, bool&, bool) { return ReadEnd::open; },
        .send = [](int, ByteView bytes, bool) { return bytes.size(); },
        .push = [](int) {},
        .unacknowledged = [](int) { return std::size_t{0}; },
        .finish = [](int) {},
        .close = [](int) {},
    };
}

namespace {

Options options() {
    Options options;
    options.symbols = "";
    options.acod = true;
    options.quiet = true;
    return options;
}

}  // namespace

Market::Market(std::size_t products)
    : venue(options(), {clock, commentary, [](ByteView) {}, nowhere(), nowhere(), {}, {}}) {
    for (std::size_t i = 0; i < products; ++i) engine.books.add_product("S" + std::to_string(i), reference_price);
    engine.start_day();
    fill_history();
    log_in("crowd");
    log_in("leave");
}

void Market::log_in(const std::string& username) {
    const ClientHandle client = order_entry.open_client(static_cast<int>(order_entry.clients_ever()));
    order_entry.receive(client,
                        esesm::build_packet(esesm::PacketType::login_request, client::login(username).payload()));
}

void Market::fill_history() {
    while (feed.history.size() < DomFeed::history_limit_messages) feed.publish(dom::build(dom::AddOrder{}));
    feed.flush();
}

void Market::rest_orders(std::size_t count, ClientHandle client) {
    for (std::size_t i = 0; i < count; ++i) {
        if (client == crowd) resting_.push_back(entered_);
        const auto request = meo::read_new_order(packets_.new_order(entered_++).subspan(header_size));
        answers_.clear();
        engine.new_order(client, *request, answers_);
        feed.flush();
    }
}

void Market::enter_and_cancel() {
    order_entry.receive(crowd, packets_.new_order(entered_));
    resting_.push_back(entered_++);
    std::swap(resting_[choice_() % resting_.size()], resting_.back());
    order_entry.receive(crowd, packets_.cancel(resting_.back()));
    resting_.pop_back();
}

void Market::fill_stream() {
    constexpr std::size_t messages_each_time = 5;
    for (std::size_t i = 0; i < SessionStream::limit_messages / messages_each_time; ++i) enter_and_cancel();
}

Market& market_with(std::size_t resting_orders) {
    static std::map<std::size_t, std::unique_ptr<Market>> markets;
    std::unique_ptr<Market>& market = markets[resting_orders];
    if (market == nullptr) {
        market = std::make_unique<Market>();
        market->rest_orders(resting_orders, Market::crowd);
        market->fill_stream();
    }
    return *market;
}

}  // namespace kavo::benchmarks

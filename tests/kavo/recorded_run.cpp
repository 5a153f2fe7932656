#include "kavo/recorded_run.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "client/transcript.h"

namespace kavo::test {

using namespace std::chrono_literals;

namespace {

constexpr std::uint16_t orders_port = 21'001;
constexpr std::uint16_t orders_behind_port = 21'002;
constexpr std::uint16_t recovery_port = 21'003;
constexpr std::uint16_t recovery_behind_port = 21'004;
constexpr std::uint16_t feed_port = 21'005;
constexpr std::uint32_t group = 0xe9361c6f;  // 233.54.28.111

std::string stamped(std::uint64_t t_ns, const std::string& line) {
    const std::string fraction = std::to_string(1'000'000'000 + t_ns % 1'000'000'000).substr(1);
    return std::to_string(t_ns / 1'000'000'000) + "." + fraction + " " + line + "\n";
}

void write_file(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

std::string between(const std::string& text, const std::string& from, const std::string& to) {
    const std::size_t begin = text.find(from) + from.size();
    return text.substr(begin, text.find(to, begin) - begin);
}

}  // namespace

RecordedRun::RecordedRun(const std::vector<std::string>& arguments, const MemoryVenue::Setting& setting)
    : venue(arguments, setting) {
    folder.path = temporary_.path("run");
    std::filesystem::create_directory(folder.path);
    facts.version = "1.0.0";
    facts.pid = 4711;
    facts.started_ns = venue.wall_ns();
    facts.command = arguments;
    facts.scenario = setting.scenario;
    facts.group = "233.54.28.111";
    facts.interface_address = "127.0.0.1";
    facts.feed_port = feed_port;
    facts.orders_port = orders_port;
    facts.orders_behind_port = orders_behind_port;
    facts.recovery_port = recovery_port;
    facts.recovery_behind_port = recovery_behind_port;
    facts.symbols = {"AAPL"};
}

RecordedRun::Client& RecordedRun::user(const std::string& name, std::uint64_t from) {
    Client& client =
        clients.emplace_back(Client{venue.connect(), client::Session(client::login(name, from)), next_port_++});
    record({Event::Kind::opened, venue.wall_ns(), {client.port, orders_port}});
    client.session.connected(venue.now_ms());
    client.session.log_in();
    return client;
}

void RecordedRun::leave(Client& client) {
    record({Event::Kind::closed, venue.wall_ns(), {client.port, orders_port}, true});
    client.connection.close();
    client.open = false;
}

void RecordedRun::recover(client::Recovery recovery) {
    MemoryConnection connection = venue.connect_receiver();
    const Ends ends{next_port_++, recovery_port};
    record({Event::Kind::opened, venue.wall_ns(), ends});
    record({Event::Kind::said, venue.wall_ns(), ends, true, false, recovery.opening()});
    connection.send(recovery.opening());
    while (!recovery.over()) {
        step();
        Bytes answer = connection.take();
        if (answer.empty()) continue;
        recovery.receive(answer);
        record({Event::Kind::said, venue.wall_ns(), ends, false, false, std::move(answer)});
    }
    record({Event::Kind::closed, venue.wall_ns(), ends, false});
    connection.close();
}

void RecordedRun::step() {
    for (Client& client : clients) {
        if (!client.open) continue;
        client.session.check_time(venue.now_ms());
        const ByteView said = client.session.to_send();
        if (said.empty()) continue;
        client.connection.send(said);
        record(
            {Event::Kind::said, venue.wall_ns(), {client.port, orders_port}, true, false, {said.begin(), said.end()}});
        client.session.sent(said.size(), venue.now_ms());
    }
    venue.advance(5ms);
    take_what_is_said();
}

void RecordedRun::take_what_is_said() {
    const std::uint64_t now_ns = venue.wall_ns();
    for (Bytes& datagram : venue.take_datagrams()) {
        record({.kind = Event::Kind::datagram, .t_ns = now_ns, .bytes = std::move(datagram)});
    }
    for (Client& client : clients) {
        if (!client.open) continue;
        Bytes said = client.connection.take();
        const Ends ends{client.port, orders_port};
        if (!said.empty()) {
            client.session.receive(said, venue.now_ms());
            record({Event::Kind::said, now_ns, ends, false, false, std::move(said)});
            while (const auto arrival = client.session.next()) {
                client.heard.push_back(client::packet_text(arrival->packet));
            }
        }
        if (!client.connection.closed()) continue;
        client.open = false;
        record({Event::Kind::closed, now_ns, ends, false});
    }
    for (const std::string& line : venue.take_order_truth()) orders += line + "\n";
    for (const std::string& line : venue.take_book_truth()) books += line + "\n";
    for (const std::string& line : venue.take_commentary()) venue_log += stamped(now_ns, line);
}

void RecordedRun::finish() {
    if (finished_) return;
    finished_ = true;
    venue.command("pause");  // or the pass that gives the report would go on with the market behind it
    const std::string stats = venue.command("stats");
    take_what_is_said();
    const std::string faults = "kavo_me faults: " + between(stats, "kavo_me faults: ", " session=");
    venue_log += stamped(venue.wall_ns(), faults);
    venue_log += stamped(venue.wall_ns(), "bench: stats " + between(stats, "ok ", " kavo_me faults:"));
    venue_log += stamped(venue.wall_ns(), "[kavo_me] stopped");
    for (Client& client : clients) {
        if (client.open) record({Event::Kind::closed, venue.wall_ns(), {client.port, orders_port}, false});
    }
    note("{\"t\":" + std::to_string(venue.wall_ns()) +
         ",\"ev\":\"venue_end\",\"status\":0,\"signal\":0,\"stopped\":true}");
}

void RecordedRun::write() {
    finish();
    companion::write_facts(facts, folder.bench());
    write_file(folder.order_truth(), orders);
    write_file(folder.book_truth(), books);
    write_file(folder.venue_log(), venue_log);
    write_file(folder.log(), notes);
    companion::Recording recording(folder.wire());
    for (const Event& event : events) {
        if (event.kind == Event::Kind::datagram) {
            recording.datagram(event.t_ns, group, feed_port, event.bytes);
            continue;
        }
        const Ends behind{event.ends.client, static_cast<std::uint16_t>(event.ends.server + 1)};
        const std::vector<Ends> way = event.by_client || event.kind == Event::Kind::opened
                                          ? std::vector{event.ends, behind}
                                          : std::vector{behind, event.ends};
        for (const Ends ends : way) {
            if (event.kind == Event::Kind::opened) recording.opened(event.t_ns, ends);
            if (event.kind == Event::Kind::said) recording.said(event.t_ns, ends, event.by_client, event.bytes);
            if (event.kind == Event::Kind::closed) recording.closed(event.t_ns, ends, event.by_client, event.reset);
        }
    }
    recording.flush();
}

companion::Journal RecordedRun::journal() {
    write();
    return companion::read_journal(folder.path);
}

void damage(std::string& text, const std::string& old, const std::string& now) {
    const std::size_t at = text.find(old);
    if (at == std::string::npos) throw std::runtime_error("nothing to damage: " + old);
    text.replace(at, old.size(), now);
}

void drop_line(std::string& text, const std::string& part) {
    const std::size_t at = text.find(part);
    if (at == std::string::npos) throw std::runtime_error("no line to drop: " + part);
    const std::size_t begin = text.rfind('\n', at) + 1;
    text.erase(begin, text.find('\n', at) + 1 - begin);
}

}  // namespace kavo::test

#include "day.h"

#include "audit/finding.h"
#include "client/requests.h"
#include "model/packets.h"

namespace kavo::simulation {

void Day::pass_after(std::uint64_t ms) {
    stage.let_pass(ms);
    stage.poll();
    stage.pass();
}

void Day::calm_down() {
    stage.free_descriptors();
    stage.command("pause");
    stage.command("lapse 0");
}

void Day::end() {
    ask_for_history();
    stage.command("stats");
    pass_after(250);
    stage.print_final_report();
}

void Day::ask_for_history() {
    Peer& peer = stage.connect_receiver();
    client::Login login = client::login("audit");
    login.application_protocol = "DoM1.3";
    Bytes range(8, 0x00);
    range.resize(16, 0xff);
    peer.to_venue = model::session_packet('l', login.payload());
    model::append(peer.to_venue, model::session_packet('a', range));
    pass_after(1);
}

DayReport Day::audit(const std::function<std::string(const Auditor& auditor)>& complaints) const {
    DayReport report;
    Auditor auditor(tape, stage.published(), stage.plan());
    try {
        auditor.audit();
        if (complaints) report.finding = complaints(auditor);
    } catch (const Finding& finding) {
        report.finding = finding.what();
    }
    report.position = auditor.position();
    report.passes = auditor.passes();
    report.feed_messages = stage.published().size();
    report.datagrams = stage.datagrams().size();
    report.counters = auditor.counters();
    return report;
}

}  // namespace kavo::simulation

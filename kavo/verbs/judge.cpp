#include "kavo/verbs/judge.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "kavo/audit/audit.h"
#include "kavo/basics/printable.h"
#include "kavo/basics/problem.h"
#include "kavo/report/page.h"
#include "kavo/report/report.h"

namespace kavo::companion {

namespace {

// A bar on the terminal, for an audit that takes longer than a second. It is gone when the audit has ended.
class Progress {
public:
    ~Progress() {
        if (shown_) std::fputs("\r\033[K", stderr);
    }

    void operator()(double share) {
        using namespace std::chrono_literals;
        const auto now = std::chrono::steady_clock::now();
        if (!terminal_ || now - begun_ < 1s || now - latest_ < 100ms) return;
        latest_ = now;
        shown_ = true;
        constexpr int width = 40;
        std::string bar(static_cast<std::size_t>(share * width), '#');
        bar.resize(width, '.');
        std::fprintf(stderr, "\rauditing [%s] %3.0f %%", bar.c_str(), share * 100);
    }

private:
    bool terminal_ = isatty(STDERR_FILENO) != 0;
    bool shown_ = false;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point latest_{};
};

std::vector<std::string> command_of(const Journal& journal) {
    for (const Note& note : journal.notes) {
        if (note.event != "command") continue;
        const auto facts = nlohmann::json::parse(note.json, nullptr, false);
        if (!facts.is_object() || !facts.contains("words")) continue;
        std::vector<std::string> words;
        for (const auto& word : facts["words"]) {
            if (word.is_string()) words.push_back(word.get<std::string>());
        }
        return words;
    }
    return {};
}

// The latest moment that anything tells of.
std::uint64_t end_of(const Journal& journal) {
    std::uint64_t end = journal.facts.started_ns;
    if (!journal.notes.empty()) end = std::max(end, journal.notes.back().t_ns);
    if (!journal.venue.empty()) end = std::max(end, journal.venue.back().t_ns);
    return end;
}

constexpr std::size_t groups_on_a_screen = 3;

std::ofstream opened(const std::filesystem::path& file, const char* option, std::ios::openmode mode) {
    std::ofstream out(file, mode | std::ios::binary);
    if (out) return out;
    throw Problem(Status::usage, std::string("cannot write ") + option + " " + printable(file.string()) + " (" +
                                     std::strerror(errno) + "): name a file in a folder that is there");
}

void copy_to(const std::filesystem::path& file, const char* option, const std::string& text) {
    if (file.empty()) return;
    std::ofstream out = opened(file, option, std::ios::trunc);
    out << text;
    out.flush();
    if (!out) throw Problem(Status::bench, "cannot write " + printable(file.string()) + ": is the disk full?");
}

}  // namespace

void check_files(const Telling& telling) {
    for (const auto& [file, option] : {std::pair{telling.html, "--html"}, std::pair{telling.junit, "--junit"}}) {
        if (file.empty()) continue;
        std::error_code error;
        const bool was_there = std::filesystem::exists(file, error);
        opened(file, option, std::ios::app).close();
        if (!was_there) std::filesystem::remove(file, error);
    }
}

Status judge(const RunFolder& folder, const Telling& telling) {
    check_files(telling);
    const Journal journal = read_journal(folder.path);
    const Verdict verdict = [&] {
        Progress progress;
        return audit(journal, [&progress](double share) { progress(share); });
    }();
    const Report report{folder,      journal.facts,  verdict, journal.defects, command_of(journal),
                        all_rules(), end_of(journal)};
    if (telling.write) write_reports(report, journal);
    if (!telling.html.empty()) copy_to(telling.html, "--html", page(report, journal));
    if (!telling.junit.empty()) copy_to(telling.junit, "--junit", junit_report(report));
    if (telling.json) {
        std::cout << json_report(report);
    } else {
        const std::string text = text_report(report, telling.all ? static_cast<std::size_t>(-1) : groups_on_a_screen);
        std::cout << (telling.quiet ? text.substr(0, text.find('\n') + 1) : text);
    }
    std::cout.flush();
    return verdict.status();
}

}  // namespace kavo::companion

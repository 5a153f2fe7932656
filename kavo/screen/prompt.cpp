#include "kavo/screen/prompt.h"

#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>

namespace kavo::companion {

namespace {

constexpr int longest_wait_ms = 500;  // then it is time to look whether a heartbeat is due
constexpr int remembered_lines = 1000;

std::size_t columns() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

}  // namespace

struct Prompt::Terminal {
    Terminal(Prompt& owner, std::string prompt_text)
        : prompt(owner),
          text(std::move(prompt_text)),
          editor(el_init("kavo", stdin, stdout, stderr)),
          lines(history_init()) {
        HistEvent event;
        history(lines, &event, H_SETSIZE, remembered_lines);
        history(lines, &event, H_SETUNIQUE, 1);
        el_set(editor, EL_CLIENTDATA, this);
        el_set(editor, EL_PROMPT, show_prompt);
        el_set(editor, EL_GETCFN, next_key);
        el_set(editor, EL_EDITOR, "emacs");
        el_set(editor, EL_HIST, history, lines);
        el_set(editor, EL_SIGNAL, 1);  // the terminal is as it was before, whatever ends the process
        el_source(editor, nullptr);
    }
    ~Terminal() {
        el_end(editor);
        history_end(lines);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    static Terminal& of(EditLine* editor) {
        void* self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return *static_cast<Terminal*>(self);
    }
    static char* show_prompt(EditLine* editor) { return of(editor).text.data(); }
    static int next_key(EditLine* editor, wchar_t* key) { return of(editor).read_key(key); }

    // One character of the keyboard, as libedit asks for it; 0 at the end.
    int read_key(wchar_t* key) {
        std::mbstate_t state{};
        while (prompt.wait_for_input()) {
            char byte = 0;
            if (read(STDIN_FILENO, &byte, 1) != 1) return 0;
            const std::size_t size = std::mbrtowc(key, &byte, 1, &state);
            if (size <= 1) return 1;
            if (size == static_cast<std::size_t>(-1)) state = {};  // no character: as if it had not been typed
        }
        return 0;
    }

    // Takes the line that is being written away, and puts it back under what is printed.
    void print_above(const std::string& printed) {
        const LineInfo* line = el_line(editor);
        const std::size_t before = text.size() + static_cast<std::size_t>(line->cursor - line->buffer);
        const std::size_t rows = before / columns();
        if (rows > 0) std::printf("\x1b[%zuA", rows);
        std::printf("\r\x1b[J%s", printed.c_str());
        el_set(editor, EL_REFRESH);
    }

    std::optional<std::string> next_line() {
        int size = 0;
        writing = true;
        const char* read = el_gets(editor, &size);
        writing = false;
        if (read == nullptr || size <= 0) return std::nullopt;
        std::string line(read, static_cast<std::size_t>(size));
        HistEvent event;
        if (line != "\n") history(lines, &event, H_ENTER, line.c_str());
        if (line.ends_with('\n')) line.pop_back();
        return line;
    }

    Prompt& prompt;
    std::string text;
    EditLine* editor;
    History* lines;
    bool writing = false;
};

Prompt::Prompt(bool edited, const std::string& text, int heard, Listen listen)
    : heard_(heard), listen_(std::move(listen)) {
    if (!edited) return;
    std::setlocale(LC_CTYPE, "");
    terminal_ = std::make_unique<Terminal>(*this, text);
}

Prompt::~Prompt() = default;

bool Prompt::wait_for_input() const {
    while (true) {
        pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {heard_, POLLIN, 0}};
        const int ready = poll(waiting, 2, longest_wait_ms);
        if ((waiting[1].revents != 0 || ready <= 0) && !listen_()) return false;
        if (ready > 0 && waiting[0].revents != 0) return true;
    }
}

std::optional<std::string> Prompt::next_line() {
    return terminal_ ? terminal_->next_line() : next_plain_line();
}

// A last line needs no end.
std::optional<std::string> Prompt::next_plain_line() {
    std::size_t end = 0;
    while ((end = read_.find('\n')) == std::string::npos && !ended_) {
        if (!wait_for_input()) return std::nullopt;
        char chunk[4096];
        const ssize_t size = read(STDIN_FILENO, chunk, sizeof chunk);
        if (size > 0) read_.append(chunk, static_cast<std::size_t>(size));
        ended_ = size <= 0;
    }
    if (read_.empty()) return std::nullopt;
    std::string line = read_.substr(0, end);
    read_.erase(0, std::min(line.size() + 1, read_.size()));
    return line;
}

void Prompt::print(const std::string& lines) {
    if (terminal_ && terminal_->writing) {
        terminal_->print_above(lines);
    } else {
        std::fputs(lines.c_str(), stdout);
    }
    std::fflush(stdout);
}

}  // namespace kavo::companion

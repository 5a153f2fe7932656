#include "kavo/bench/keeper.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include "kavo/basics/problem.h"
#include "kavo/bench/keeping.h"

namespace kavo::companion {

namespace {

using namespace std::chrono_literals;

constexpr auto longest_end = 10s;  // of the keeper, which has bounds of its own for whatever it does
constexpr auto longest_answer = 10s;

[[noreturn]] void fail(const char* what) {
    throw Problem(Status::bench, std::string("cannot begin a bench: ") + what + ": " + std::strerror(errno) + ".");
}

bool wait_readable(int socket, std::chrono::milliseconds longest) {
    pollfd waiting{socket, POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(longest.count())) > 0;
}

// Heard to its end, or for so long.
bool wait_for_end(int socket) {
    const auto end = std::chrono::steady_clock::now() + longest_end;
    char ignored[256];
    while (std::chrono::steady_clock::now() < end) {
        if (wait_readable(socket, 100ms) && recv(socket, ignored, sizeof ignored, 0) <= 0) return true;
    }
    return false;
}

}  // namespace

Keeper::Keeper(Loop& loop, std::filesystem::path temporary)
    : loop_(loop), temporary_(std::move(temporary)), children_before_(children()) {
    int ends[2], errors[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) fail("no sockets");
    conversation_ = Descriptor{ends[0]};
    Descriptor other_end{ends[1]};
    if (pipe2(errors, O_CLOEXEC) != 0) fail("no pipe");
    errors_ = Descriptor{errors[0]};
    Descriptor writes{errors[1]};
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    // A keeper is not to be born with a signal that ends it before it ignores them.
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    pid_ = fork();
    if (pid_ == 0) {
        conversation_.reset();
        // The reading end stays open: a venue that says its last lines when kavo is gone must not die of it.
        keep(other_end.get(), writes.get(), temporary_);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (pid_ < 0) fail("no process");
    fcntl(errors_.get(), F_SETFL, O_NONBLOCK);
    loop_.watch(conversation_.get(), POLLIN, [this](short) { hear(); });
}

Keeper::~Keeper() {
    const bool lost = pid_ < 0;
    if (!lost) {
        loop_.forget(conversation_.get());
        shutdown(conversation_.get(), SHUT_WR);
        if (!wait_for_end(conversation_.get())) kill(pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
        if (WIFEXITED(status)) return;
        kill_children(children_before_, longest_end);
    }
    std::error_code ignored;
    if (!temporary_.empty()) std::filesystem::remove_all(temporary_, ignored);
}

pid_t Keeper::start(Kept which, const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    std::string text;
    for (const auto* list : {&command, &environment}) {
        for (const std::string& word : *list) text.append(word.c_str()).push_back('\0');
    }
    ask('s', which, static_cast<int>(command.size()), text);
    KeeperReply reply;
    while (reply.what != 's') {  // what has ended meanwhile is told later, in its turn
        const bool came = wait_readable(conversation_.get(), longest_answer) &&
                          recv(conversation_.get(), &reply, sizeof reply, MSG_WAITALL) == sizeof reply;
        if (!came) throw Problem(Status::bench, "the process that keeps the bench together has gone: try again.");
        if (reply.what != 's') heard_.append(reinterpret_cast<const char*>(&reply), sizeof reply);
    }
    if (!heard_.empty()) loop_.after(0ms, [this] { tell(); });
    if (reply.number == 0) return static_cast<pid_t>(reply.pid);
    throw Problem(which == Kept::command ? Status::usage : Status::bench,
                  "cannot start " + command.front() + ": " + std::strerror(reply.number) + ".");
}

void Keeper::signal(Kept which, int number) {
    ask('k', which, number, {});
}

// A keeper that does not hear has died, which is noticed where it is heard.
void Keeper::ask(char what, Kept which, int number, const std::string& text) {
    const KeeperRequest request{what, static_cast<char>(which), number, text.size()};
    std::string all(reinterpret_cast<const char*>(&request), sizeof request);
    all += text;
    for (std::size_t sent = 0; sent < all.size();) {
        const ssize_t count = send(conversation_.get(), all.data() + sent, all.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return;
        sent += static_cast<std::size_t>(count);
    }
}

void Keeper::hear() {
    char bytes[512];
    const ssize_t count = recv(conversation_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return;
    if (count > 0) heard_.append(bytes, static_cast<std::size_t>(count));
    tell();
    if (count <= 0) lose();
}

void Keeper::tell() {
    KeeperReply reply;
    while (heard_.size() >= sizeof reply) {
        std::memcpy(&reply, heard_.data(), sizeof reply);
        heard_.erase(0, sizeof reply);
        if (on_end) on_end(static_cast<Kept>(reply.which), reply.number);
    }
}

void Keeper::lose() {
    loop_.forget(conversation_.get());
    waitpid(std::exchange(pid_, -1), nullptr, 0);
    kill_children(children_before_, longest_end);
    if (on_lost) on_lost();
}

}  // namespace kavo::companion

#include "kavo/bench/keeping.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "kavo/bench/descriptor.h"
#include "kavo/bench/keeper.h"

namespace kavo::companion {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto grace = 500ms;  // for whoever is asked to end, before it is killed
constexpr auto longest_killing = 5s;
constexpr auto look_again = 20ms;
// Whoever means the terminal's programs, or kavo, does not mean the keeper.
constexpr std::array ignored{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP, SIGTTIN, SIGTTOU, SIGUSR1, SIGUSR2};

class Keeping {
public:
    Keeping(int conversation, int errors) : conversation_(conversation), errors_(errors) {}

    void prepare();
    void run();  // until kavo is gone
    void end_all();

private:
    bool carry_out_a_request();
    void start(char which, const std::string& text, std::int32_t words);
    [[noreturn]] void become(char which, const std::string& text, std::int32_t words, int failure) const;
    void signal(char which, int number) const;
    void reap();
    void say(const KeeperReply& reply) const;

    int conversation_;
    int errors_;
    int ended_ = -1;              // readable when a child has ended
    std::map<char, pid_t> kept_;  // until they are waited for, so no number is another's
    std::array<struct sigaction, ignored.size()> before_{};
    pid_t self_ = getpid();
};

void Keeping::prepare() {
    setsid();
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    prctl(PR_SET_NAME, "bench-keeper");  // for whoever kills everything with the name of kavo in its name
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    for (std::size_t i = 0; i < ignored.size(); ++i) sigaction(ignored[i], &ignore, &before_[i]);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_SETMASK, &child, nullptr);
    ended_ = signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK);
}

void Keeping::run() {
    for (bool kavo_lives = true; kavo_lives;) {
        std::array<pollfd, 2> waiting{{{conversation_, POLLIN, 0}, {ended_, POLLIN, 0}}};
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[1].revents != 0) reap();
        if (waiting[0].revents != 0) kavo_lives = carry_out_a_request();
    }
}

bool read_whole(int socket, void* place, std::size_t size) {
    for (auto* next = static_cast<char*>(place); size > 0;) {
        const ssize_t count = recv(socket, next, size, 0);
        if (count == 0 || (count < 0 && errno != EINTR)) return false;
        next += std::max<ssize_t>(count, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

bool Keeping::carry_out_a_request() {
    KeeperRequest request;
    if (!read_whole(conversation_, &request, sizeof request)) return false;
    std::string text(request.size, '\0');
    if (!read_whole(conversation_, text.data(), text.size())) return false;
    if (request.what == 's') start(request.which, text, request.number);
    if (request.what == 'k') signal(request.which, request.number);
    return true;
}

// A child that cannot become the program writes why into a pipe that its success closes.
void Keeping::start(char which, const std::string& text, std::int32_t words) {
    int ends[2];
    KeeperReply reply{'s', which, EAGAIN, 0};
    if (pipe2(ends, O_CLOEXEC) != 0) return say(reply);
    const pid_t pid = fork();
    if (pid == 0) become(which, text, words, ends[1]);
    close(ends[1]);
    if (pid > 0) {
        reply.pid = pid;
        if (read(ends[0], &reply.number, sizeof reply.number) <= 0) reply.number = 0;
        if (reply.number == 0) kept_[which] = pid;
    }
    close(ends[0]);
    if (which == static_cast<char>(Kept::venue)) close(errors_);
    say(reply);
}

void Keeping::become(char which, const std::string& text, std::int32_t words, int failure) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != self_) _exit(127);  // it died before it could be watched
    setpgid(0, 0);
    for (std::size_t i = 0; i < ignored.size(); ++i) sigaction(ignored[i], &before_[i], nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (which == static_cast<char>(Kept::venue)) {
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nothing, STDIN_FILENO);
        dup2(nothing, STDOUT_FILENO);
        dup2(errors_, STDERR_FILENO);
    }
    std::vector<char*> arguments, environment;
    for (std::size_t at = 0; at < text.size(); at += std::strlen(text.c_str() + at) + 1) {
        auto& list = std::cmp_less(arguments.size(), words) ? arguments : environment;
        list.push_back(const_cast<char*>(text.c_str() + at));
    }
    arguments.push_back(nullptr);
    environment.push_back(nullptr);
    execvpe(arguments[0], arguments.data(), environment.data());
    const std::int32_t why = errno;
    [[maybe_unused]] const ssize_t told = write(failure, &why, sizeof why);
    _exit(127);
}

void Keeping::signal(char which, int number) const {
    const auto found = kept_.find(which);
    if (found != kept_.end()) kill(-found->second, number);
}

void Keeping::reap() {
    signalfd_siginfo told{};
    while (read(ended_, &told, sizeof told) > 0) {
    }
    int status = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto kept = std::ranges::find(kept_, pid, [](const auto& entry) { return entry.second; });
        if (kept == kept_.end()) continue;
        say({'e', kept->first, status, pid});
        kept_.erase(kept);
    }
}

void Keeping::say(const KeeperReply& reply) const {
    send(conversation_, &reply, sizeof reply, MSG_NOSIGNAL);
}

// Everybody is asked once: the venue then writes what it has buffered, and a bench inside this one removes its own
// folder.
void Keeping::end_all() {
    const auto end = Clock::now() + grace;
    std::set<pid_t> asked;
    for (const auto& [which, pid] : kept_) kill(-pid, SIGTERM);
    for (std::set<pid_t> left = children(); !left.empty() && Clock::now() < end; left = children()) {
        for (const pid_t pid : left) {
            if (asked.insert(pid).second) kill(pid, SIGTERM);
        }
        pollfd waiting{ended_, POLLIN, 0};
        poll(&waiting, 1, static_cast<int>(look_again.count()));
        reap();
    }
    kill_children({}, longest_killing);
}

// The parent is the second field behind the name, which is in brackets and may hold anything. -1 for a process that has
// ended meanwhile: reading tells so, by an error that a stream buffer would throw.
pid_t parent_of(const std::string& process) {
    const Descriptor file{open(("/proc/" + process + "/stat").c_str(), O_RDONLY | O_CLOEXEC)};
    char stat[1024];
    const ssize_t count = read(file.get(), stat, sizeof stat - 1);
    if (count <= 0) return -1;
    stat[count] = '\0';
    const char* name_end = std::strrchr(stat, ')');
    return name_end == nullptr || std::strlen(name_end) < 5 ? -1 : static_cast<pid_t>(std::atol(name_end + 4));
}

}  // namespace

std::set<pid_t> children() {
    std::set<pid_t> found;
    if (waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD) return found;
    const pid_t self = getpid();
    std::error_code error;
    for (std::filesystem::directory_iterator all("/proc", error), end; !error && all != end; all.increment(error)) {
        const std::string name = all->path().filename();
        pid_t pid = 0;
        const auto [last, wrong] = std::from_chars(name.data(), name.data() + name.size(), pid);
        const bool is_process = wrong == std::errc{} && last == name.data() + name.size();
        if (is_process && parent_of(name) == self) found.insert(pid);
    }
    return found;
}

// Only children are killed: their numbers cannot be another's before they are waited for. What a child leaves behind is
// a child the next time.
void kill_children(const std::set<pid_t>& spared, std::chrono::milliseconds longest) {
    const auto end = Clock::now() + longest;
    while (Clock::now() < end) {
        std::set<pid_t> doomed = children();
        for (const pid_t pid : spared) doomed.erase(pid);
        if (doomed.empty()) return;
        for (const pid_t pid : doomed) kill(pid, SIGKILL);
        bool any = false;
        for (const pid_t pid : doomed) any |= waitpid(pid, nullptr, WNOHANG) == pid;
        if (!any) poll(nullptr, 0, 1);
    }
}

void keep(int conversation, int errors, const std::filesystem::path& temporary) {
    Keeping keeping(conversation, errors);
    keeping.prepare();
    keeping.run();
    keeping.end_all();
    std::error_code ignored_error;
    if (!temporary.empty()) std::filesystem::remove_all(temporary, ignored_error);
    _exit(0);
}

}  // namespace kavo::companion

#include "support/process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kavo::test {

namespace {

using std::chrono::steady_clock;

// Below the range from which the system itself hands out ports.
constexpr int lowest_port = 10'000;
constexpr int highest_port = 32'000;

bool bind_to(int socket, const char* address, int port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(static_cast<std::uint16_t>(port));
    name.sin_addr.s_addr = inet_addr(address);
    return bind(socket, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

// True when a TCP listener could be opened on all addresses.
bool is_free(int port) {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool free = bind_to(probe, "0.0.0.0", port);
    close(probe);
    return free;
}

// What mkstemp and mkdtemp make a name of. TMPDIR says where.
std::string temporary_path() {
    return (std::filesystem::temp_directory_path() / "kavo_me_test_XXXXXX").string();
}

// The arguments as execve wants them.
std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

// A UDP socket on the same number and an address that nothing else uses is the token of the reservation.
ReservedPort::ReservedPort() {
    const int range = highest_port - lowest_port;
    const int start = static_cast<int>(getpid() * 7919L % range);
    static int taken = 0;
    for (int i = 0; i < range; ++i) {
        const int port = lowest_port + (start + taken++) % range;
        token_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (bind_to(token_, "127.0.0.2", port) && is_free(port)) {
            number_ = static_cast<std::uint16_t>(port);
            return;
        }
        close(token_);
    }
    throw std::runtime_error("no free port");
}

ReservedPort::~ReservedPort() {
    close(token_);
}

TemporaryFile::TemporaryFile() : path_(temporary_path()) {
    close(mkstemp(path_.data()));
}

TemporaryFile::~TemporaryFile() {
    unlink(path_.c_str());
}

std::string TemporaryFile::content() const {
    return content_of(path_);
}

std::vector<std::string> TemporaryFile::lines() const {
    std::vector<std::string> lines;
    std::istringstream text(content());
    for (std::string line; std::getline(text, line) && !text.eof();) lines.push_back(line);
    return lines;
}

TemporaryFolder::TemporaryFolder() : path_(temporary_path()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TemporaryFolder::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string content_of(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

Process::Process(const std::string& program, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment) {
    int pipe_ends[2];
    if (pipe2(pipe_ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    std::vector<std::string> texts{program};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = pointers(texts);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that is killed leaves nobody behind
        unsetenv("KAVO_ME_SCENARIO");
        unsetenv("BENCH_ORDER_TRUTH");
        for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
        dup2(pipe_ends[1], STDERR_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(pipe_ends[1]);
    errors_ = pipe_ends[0];
    if (pid_ < 0) throw std::runtime_error("cannot fork");  // before anybody sends a signal to number -1
}

Process::~Process() {
    if (!ended_) {
        signal(SIGKILL);
        wait();
    }
    close(errors_);
}

void Process::read_errors(std::chrono::milliseconds longest) {
    pollfd polled{errors_, POLLIN, 0};
    if (poll(&polled, 1, static_cast<int>(longest.count())) <= 0) return;
    char text[4096];
    const ssize_t count = read(errors_, text, sizeof text);
    if (count > 0) said_.append(text, static_cast<std::size_t>(count));
    // Once the child has closed its end there is nothing to wait for, and a poll would return at once for ever.
    if (count == 0) poll(nullptr, 0, static_cast<int>(longest.count()));
}

bool Process::says(const std::string& text) {
    const auto deadline = steady_clock::now() + patience;
    while (said_.find(text) == std::string::npos) {
        if (steady_clock::now() > deadline) return false;
        read_errors(std::chrono::milliseconds(20));
    }
    return true;
}

std::string Process::said() {
    for (std::size_t before = said_.size() + 1; before != said_.size();) {
        before = said_.size();
        read_errors(std::chrono::milliseconds(0));
    }
    return said_;
}

// The system shows the signals that are caught as a mask of hexadecimal digits.
bool Process::catches(int number) const {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (!line.starts_with("SigCgt:")) continue;
            const std::uint64_t caught = std::stoull(line.substr(line.find('\t')), nullptr, 16);
            if ((caught >> (number - 1) & 1) != 0) return true;
        }
        poll(nullptr, 0, 1);
    }
    return false;
}

void Process::signal(int number) const {
    if (!ended_) kill(pid_, number);
}

int Process::wait() {
    const auto deadline = steady_clock::now() + patience;
    while (!ended_) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            ended_ = true;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
            said();
            break;
        }
        if (steady_clock::now() > deadline) return -1000;
        read_errors(std::chrono::milliseconds(5));
    }
    return status_;
}

int Process::stop() {
    signal(SIGINT);
    return wait();
}

}  // namespace kavo::test

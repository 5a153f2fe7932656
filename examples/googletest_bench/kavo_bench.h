// A private bench for each test of a trading client, and the verdict at its end: a fixture for GoogleTest around the
// program kavo. C++17 and POSIX; copy this one file, nothing else of the project is needed.
//
//     struct MyClient : kavo_bench::BenchTest {};
//
//     TEST_F(MyClient, LivesWithRejects) {
//         kavo_bench::Bench& bench = open("reject_every=5", {"--seed", "7"});
//         bench.start({"./my_client", "--orders", "100"});  // KAVO_ORDERS, KAVO_FEED, ... are in its environment
//         bench.control("drop 1");
//         EXPECT_EQ(bench.wait(std::chrono::seconds(30)), 0);
//     }
//
// When the test has ended so does the bench, and `kavo audit` judges what was on the wire, and what the client believed
// if it wrote that down. Each failure tells how to look at the run again; runs without one are removed.
//
// The program is what the variable KAVO names, or the kavo on the PATH.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

extern "C" char** environ;

namespace kavo_bench {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

inline constexpr std::chrono::seconds patience{10};  // for what should have come long before

// The bench could not do its work: says nothing about the client.
struct BenchError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A child process in a group of its own. Its end of a pipe, where one was asked for, closes with this object.
class Child {
public:
    struct Wishes {
        bool pipe_in = false;   // write to its standard input, or let it end by closing that
        bool pipe_out = false;  // read its standard output
    };

    //   environment  NAME=VALUE; takes the place of what this process has under the same names
    Child(const std::vector<std::string>& command, const std::vector<std::string>& environment, Wishes wishes) {
        int in[2] = {-1, -1};
        int out[2] = {-1, -1};
        if (wishes.pipe_in && pipe2(in, O_CLOEXEC) != 0) throw BenchError("no pipe is to be had");
        if (wishes.pipe_out && pipe2(out, O_CLOEXEC) != 0) throw BenchError("no pipe is to be had");
        std::vector<char*> words;
        for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        pid_ = fork();
        if (pid_ < 0) throw BenchError("no process is to be had");
        if (pid_ == 0) {
            setpgid(0, 0);
            if (wishes.pipe_in) dup2(in[0], STDIN_FILENO);
            if (wishes.pipe_out) dup2(out[1], STDOUT_FILENO);
            for (const std::string& variable : environment) putenv(const_cast<char*>(variable.c_str()));
            execvp(words[0], words.data());
            constexpr std::string_view text = "cannot be started: ";
            [[maybe_unused]] ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
            ignored = write(STDERR_FILENO, (command[0] + "\n").c_str(), command[0].size() + 1);
            _exit(127);
        }
        close_if_open(in[0]);
        close_if_open(out[1]);
        in_ = in[1];
        out_ = out[0];
    }
    ~Child() {
        close_input();
        close_if_open(out_);
        if (!status_) end();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void close_input() { close_if_open(in_); }

    // What it says up to the end of a line, or to its end when `all`; as much as there is in time.
    std::string read(bool all, milliseconds longest) {
        const auto deadline = steady_clock::now() + longest;
        std::string text;
        while (all || text.empty() || text.back() != '\n') {
            const auto left = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
            pollfd polled{out_, POLLIN, 0};
            if (left.count() <= 0 || poll(&polled, 1, static_cast<int>(left.count())) <= 0) break;
            char bytes[4096];
            const ssize_t count = ::read(out_, bytes, all ? sizeof bytes : 1);
            if (count <= 0) break;
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return text;
    }

    // Its exit status, or 128 and the number of the signal that ended it; nothing when it is still running.
    std::optional<int> wait(milliseconds longest) {
        if (status_) return status_;
        const int ending = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        pollfd polled{ending, POLLIN, 0};
        const bool ended = poll(&polled, 1, static_cast<int>(longest.count())) > 0;
        close(ending);
        if (!ended) return std::nullopt;
        int status = 0;
        waitpid(pid_, &status, 0);
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return status_;
    }

    // As a user would end it, and by force when that does not help.
    void end() {
        for (const int number : {SIGTERM, SIGKILL}) {
            kill(-pid_, number);
            if (wait(std::chrono::seconds(5))) return;
        }
    }

private:
    static void close_if_open(int& number) {
        if (number >= 0) close(number);
        number = -1;
    }

    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    std::optional<int> status_;
};

// A bench of one's own, ready when it is made, and the client beside it.
class Bench {
public:
    //   folder    of the run; must not be there
    //   scenario  scripted misbehaviour, such as "reject_every=5"
    //   flags     of kavo_me
    Bench(std::filesystem::path folder, const std::string& scenario, const std::vector<std::string>& flags)
        : folder_(std::move(folder)) {
        std::vector<std::string> command{program(), "run", "--dir", folder_.string(), "--while-stdin"};
        if (!scenario.empty()) command.insert(command.end(), {"--scenario", scenario});
        command.emplace_back("--");
        command.insert(command.end(), flags.begin(), flags.end());
        // It ends with its standard input, so it does not outlive a test that is killed.
        run_ = std::make_unique<Child>(command, std::vector<std::string>{}, Child::Wishes{true, true});
        facts_ = run_->read(false, patience);
        if (facts_.find("\"orders_port\"") == std::string::npos) {
            throw BenchError("no bench: is kavo on the PATH, or named in the variable KAVO? It said: " + facts_);
        }
    }

    // What `kavo run` has told under this name; texts without their quotes.
    std::string fact(const std::string& name) const {
        const std::size_t key = facts_.find("\"" + name + "\":");
        if (key == std::string::npos) throw BenchError("kavo run tells no " + name);
        std::size_t at = key + name.size() + 3;
        if (facts_[at] == '"') return facts_.substr(at + 1, facts_.find('"', at + 1) - at - 1);
        return facts_.substr(at, facts_.find_first_of(",}", at) - at);
    }
    std::uint16_t port(const std::string& name) const { return static_cast<std::uint16_t>(std::stoi(fact(name))); }
    std::uint16_t orders_port() const { return port("orders_port"); }
    std::uint16_t recovery_port() const { return port("recovery_port"); }
    std::uint16_t feed_port() const { return port("feed_port"); }
    std::uint16_t control_port() const { return port("control_port"); }
    std::string group() const { return fact("group"); }
    std::string interface_address() const { return fact("interface"); }
    const std::filesystem::path& folder() const { return folder_; }

    // All that a client has to know, as NAME=VALUE.
    std::vector<std::string> environment() const {
        const std::string here = "127.0.0.1:";
        return {"KAVO_ORDERS=" + here + fact("orders_port"),
                "KAVO_FEED=" + group() + ":" + fact("feed_port"),
                "KAVO_IFACE=" + interface_address(),
                "KAVO_RECOVERY=" + here + fact("recovery_port"),
                "KAVO_CONTROL=" + here + fact("control_port"),
                "KAVO_DIR=" + folder_.string(),
                "KAVO_CLIENT_LOG=" + fact("client"),
                "KAVO_SEED=" + fact("seed"),
                "KAVO_SYMBOLS=" + symbols()};
    }

    // Starts the client under test. It does not outlive the bench.
    void start(const std::vector<std::string>& command) {
        client_ = std::make_unique<Child>(command, environment(), Child::Wishes{});
    }
    // The client's exit status, or 128 and the signal that ended it; nothing when it is still running by then.
    std::optional<int> wait(milliseconds longest) { return client_ ? client_->wait(longest) : std::nullopt; }

    // Sends a control word; the venue's reply.
    std::string control(const std::string& words) const {
        const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(control_port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        char reply[65536];
        pollfd polled{socket, POLLIN, 0};
        const bool sent = send(socket, words.data(), words.size(), 0) >= 0;
        const bool answered = sent && poll(&polled, 1, 2000) > 0;
        const ssize_t count = answered ? recv(socket, reply, sizeof reply, 0) : -1;
        close(socket);
        if (count < 0) throw BenchError("the control port does not answer '" + words + "'");
        return {reply, static_cast<std::size_t>(count)};
    }

    // Ends the client, and then the bench in good order, so that everything is written. Once is enough.
    void stop() {
        if (!run_) return;
        client_.reset();
        run_->close_input();
        const std::optional<int> status = run_->wait(2 * patience);
        run_.reset();
        if (status != 0) throw BenchError("the bench did not end in good order:\n" + last_lines());
    }

    struct Verdict {
        int status = 0;    // 0 right, 1 findings, 3 the bench, 4 inconclusive
        std::string text;  // as kavo prints it
    };
    Verdict audit() {
        stop();
        Child audit({program(), "audit", folder_.string(), "--all"}, {}, Child::Wishes{false, true});
        const std::string text = audit.read(true, 12 * patience);
        return {audit.wait(patience).value_or(3), text};
    }

    // What the venue said last.
    std::string last_lines(std::size_t count = 15) const {
        std::ifstream in(fact("venue_log"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
            if (lines.size() > count) lines.erase(lines.begin());
        }
        std::string text;
        for (const std::string& line : lines) text += line + "\n";
        return text;
    }

    // All that somebody needs to look at the run again.
    std::string story() const {
        std::string text = "seed " + fact("seed") + ", scenario '" + fact("scenario") + "'\n";
        for (const std::string& variable : environment()) text += variable + "\n";
        return text + "kept: kavo show " + folder_.string() + "; kavo audit " + folder_.string() +
               "\nlast lines of the venue:\n" + last_lines();
    }

private:
    static std::string program() {
        const char* named = std::getenv("KAVO");
        return named != nullptr && *named != '\0' ? named : "kavo";
    }
    // ["AAPL","MSFT"] as AAPL,MSFT
    std::string symbols() const {
        const std::size_t begin = facts_.find('[', facts_.find("\"symbols\":"));
        std::string names = facts_.substr(begin + 1, facts_.find(']', begin) - begin - 1);
        std::string plain;
        for (const char c : names) {
            if (c != '"') plain += c;
        }
        return plain;
    }

    std::filesystem::path folder_;
    std::unique_ptr<Child> run_;
    std::unique_ptr<Child> client_;
    std::string facts_;
};

// A test whose client is judged when it has ended.
class BenchTest : public ::testing::Test {
protected:
    // A bench for the rest of this test. One is enough for a test.
    Bench& open(const std::string& scenario = "", const std::vector<std::string>& flags = {}) {
        std::string name = (std::filesystem::temp_directory_path() / "kavo-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw BenchError("cannot make " + name);
        folder_ = name;
        bench_ = std::make_unique<Bench>(folder_ / "run", scenario, flags);
        return *bench_;
    }

    void TearDown() override {
        if (!bench_) return;
        try {
            judge(bench_->audit());
        } catch (const BenchError& problem) {
            ADD_FAILURE() << "says nothing about the client: " << problem.what() << "\n" << bench_->story();
        }
        bench_.reset();
        if (!HasFailure()) std::filesystem::remove_all(folder_);
    }

private:
    void judge(const Bench::Verdict& verdict) const {
        if (verdict.status == 0) return;
        const char* what = verdict.status == 1 ? "the client is wrong" : "nothing can be said about the client";
        ADD_FAILURE() << what << "\n" << verdict.text << "\n" << bench_->story();
    }

    std::filesystem::path folder_;
    std::unique_ptr<Bench> bench_;
};

}  // namespace kavo_bench

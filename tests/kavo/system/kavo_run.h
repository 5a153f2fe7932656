// `kavo run` as a child process: the line that it prints when it is ready, and what is left of it.
#pragma once

#include <poll.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/process.h"

namespace kavo::test {

using Environment = std::map<std::string, std::string>;

// Waits until something holds; false when it never does.
template <typename Condition>
bool comes_true(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        poll(nullptr, 0, 1);
    }
    return true;
}

// A variable that is in the environment of whatever comes of a child, and of nobody else.
class Mark {
public:
    Mark() : value_(std::to_string(getpid()) + "-" + std::to_string(next_++)) {}
    const std::string& value() const { return value_; }

    std::vector<pid_t> processes() const {
        std::vector<pid_t> found;
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
            const std::string name = entry.path().filename();
            if (name.find_first_not_of("0123456789") != std::string::npos) continue;
            if (content_of(entry.path() / "environ").find("KAVO_TEST_MARK=" + value_ + '\0') != std::string::npos)
                found.push_back(std::stoi(name));
        }
        return found;
    }

private:
    static inline int next_ = 0;
    std::string value_;
};

// The name that a process shows, "bench-keeper" say.
inline std::string name_of(pid_t pid) {
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
    return name;
}

// Whether a process has ended, even if nobody has waited for it: whoever adopts it may not.
inline bool gone(pid_t pid) {
    const std::string stat = content_of("/proc/" + std::to_string(pid) + "/stat");
    return stat.empty() || stat.compare(stat.rfind(')'), 3, ") Z") == 0;
}

class KavoRun {
public:
    // `arguments` follow "kavo run --venue PATH".
    explicit KavoRun(const std::vector<std::string>& arguments = {}, Environment environment = {},
                     const std::string& venue = KAVO_ME_PATH)
        : process_("/bin/sh", words(arguments, venue), with_own(std::move(environment))) {}

    // Waits for the line. A null value when kavo ends without one.
    nlohmann::json ready() {
        comes_true([this] {
            const bool over = gone(process_.pid());
            line_ = output_.lines();
            return over || !line_.empty();
        });
        return line_.empty() ? nlohmann::json{} : nlohmann::json::parse(line_.front());
    }

    Process& process() { return process_; }
    const Mark& mark() const { return mark_; }
    // In what was given as the folder for temporary files.
    std::vector<std::string> temporary_files() const { return temporary_.names(); }
    pid_t keeper() const {
        for (const pid_t pid : mark_.processes()) {
            if (name_of(pid) == "bench-keeper") return pid;
        }
        return -1;
    }
    // Waits until there are neither processes nor files of it.
    bool leaves_nothing() const {
        return comes_true([this] { return mark_.processes().empty() && temporary_.names().empty(); });
    }

private:
    std::vector<std::string> words(const std::vector<std::string>& arguments, const std::string& venue) const {
        std::vector<std::string> all{"-c", "exec \"$0\" run --venue \"$@\" > \"$KAVO_TEST_OUTPUT\"", KAVO_PATH, venue};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    Environment with_own(Environment environment) const {
        environment["KAVO_TEST_OUTPUT"] = output_.path();
        environment["KAVO_TEST_MARK"] = mark_.value();
        environment["TMPDIR"] = temporary_.path("");
        return environment;
    }
    Mark mark_;
    TemporaryFolder temporary_;
    TemporaryFile output_;
    std::vector<std::string> line_;
    Process process_;
};

}  // namespace kavo::test

// A program on a terminal of its own, and somebody who types.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "client/dial.h"

namespace kavo::test {

class Terminal {
public:
    explicit Terminal(const std::vector<std::string>& command) {
        std::vector<char*> words;
        for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        const winsize size{24, 80, 0, 0};
        pid_ = forkpty(&screen_, nullptr, nullptr, &size);
        if (pid_ != 0) return;
        setenv("TERM", "xterm", 1);
        execv(words[0], words.data());
        _exit(127);
    }
    ~Terminal() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(screen_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& keys) {
        EXPECT_EQ(write(screen_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    // Waits until the screen has been given this text, behind what was waited for last.
    bool shows(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + client::patience;
        while (true) {
            if (const std::size_t at = shown_.find(text, seen_); at != std::string::npos) {
                seen_ = at + text.size();
                return true;
            }
            pollfd polled{screen_, POLLIN, 0};
            char chunk[4096];
            if (std::chrono::steady_clock::now() > end || poll(&polled, 1, 1000) < 0) return false;
            const ssize_t size = polled.revents != 0 ? read(screen_, chunk, sizeof chunk) : 0;
            if (size < 0) return false;
            shown_.append(chunk, static_cast<std::size_t>(size));
        }
    }
    // The exit status, or minus the signal that ended it.
    int wait() {
        shows("nothing that it says any more");
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    const std::string& shown() const { return shown_; }

private:
    int screen_ = -1;
    pid_t pid_ = -1;
    std::string shown_;
    std::size_t seen_ = 0;
};

}  // namespace kavo::test

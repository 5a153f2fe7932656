// The real program as a child process, on ports of its own, with everything that it says on standard error at hand.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "client/dial.h"

namespace kavo::test {

using client::patience;

// A TCP port on which nobody listens, kept from every other test process that asks here until this object goes away.
class ReservedPort {
public:
    ReservedPort();
    ~ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;

    std::uint16_t number() const { return number_; }

private:
    int token_;
    std::uint16_t number_;
};

// A file name in the temporary folder; the file is removed with this object.
class TemporaryFile {
public:
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }
    std::string content() const;
    std::vector<std::string> lines() const;  // whole ones

private:
    std::string path_;
};

// An empty folder of its own; it is removed with this object, and everything in it too.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> names() const;  // of what is in it, sorted

private:
    std::string path_;
};

// The content of a file; empty when there is none.
std::string content_of(const std::string& path);

class Process {
public:
    // Starts the program at once. Flags and environment variables are given as they are.
    Process(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment = {});
    // Ends the child, if it still runs, by SIGKILL.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Waits until standard error holds `text`, from the start of the run on; false when it never comes.
    bool says(const std::string& text);
    // Everything said on standard error so far.
    std::string said();

    // Waits until the child has a handler of its own for a signal; false when it never has.
    bool catches(int number) const;

    void signal(int number) const;  // nothing once the child has been waited for: its number may be another's by then
    // Waits for the end. The exit status, or minus the signal that ended it; -1000 when it does not end.
    int wait();
    // SIGINT, then wait.
    int stop();

    pid_t pid() const { return pid_; }

private:
    void read_errors(std::chrono::milliseconds longest);

    pid_t pid_ = -1;
    int errors_ = -1;
    std::string said_;
    bool ended_ = false;
    int status_ = 0;
};

}  // namespace kavo::test

// What the venue writes beside the wire, caught line by line while it happens: its commentary on standard error and its
// two truth logs. Caught on the spot, a line keeps its place among the packets and datagrams around it.
#pragma once

#include <cstdio>
#include <fstream>
#include <functional>
#include <streambuf>
#include <string>
#include <string_view>

namespace kavo::simulation {

using TakeLine = std::function<void(std::string_view line)>;

// Cuts text into lines.
class LineCutter {
public:
    explicit LineCutter(TakeLine take) : take_(std::move(take)) {}
    void add(std::string_view text);

private:
    TakeLine take_;
    std::string line_;
};

// The end of what standard error was told last: a failed assertion explains itself there before it ends the process.
const char* last_words();

// While this lives, standard error is caught. Whatever writes to the descriptor itself, such as a sanitizer, is still
// heard.
class CaughtCommentary {
public:
    explicit CaughtCommentary(TakeLine take);
    ~CaughtCommentary();
    CaughtCommentary(const CaughtCommentary&) = delete;
    CaughtCommentary& operator=(const CaughtCommentary&) = delete;

private:
    LineCutter cutter_;
    std::FILE* spoken_to_;
};

// Stands in for the file of a truth log. It must outlive the stream that it is attached to.
class CaughtLog : private std::streambuf {
public:
    explicit CaughtLog(TakeLine take) : cutter_(std::move(take)) {}
    // The stream must be open, or the venue would write nothing.
    void attach_to(std::ofstream& stream);

private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;

    LineCutter cutter_;
};

}  // namespace kavo::simulation

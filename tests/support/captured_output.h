// What the engine writes beside the wire: its commentary kept out of the way, its truth files read back.
#pragma once

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace kavo::model {

// The engine comments on all that it does. While this lives the comments go nowhere, but whatever writes to the
// descriptor itself, such as a sanitizer, is still heard.
class WithoutCommentary {
public:
    WithoutCommentary();
    ~WithoutCommentary();
    WithoutCommentary(const WithoutCommentary&) = delete;
    WithoutCommentary& operator=(const WithoutCommentary&) = delete;

private:
    std::FILE* spoken_to_;
};

// What one stream appends, read back line by line from a file that nobody else can find.
class LinesOf {
public:
    explicit LinesOf(std::ofstream& stream);
    std::vector<std::string> new_lines();

private:
    std::ofstream& stream_;
    std::ifstream reader_;
};

}  // namespace kavo::model

#include "support/captured_output.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace kavo::model {

WithoutCommentary::WithoutCommentary() : spoken_to_(std::exchange(stderr, std::fopen("/dev/null", "w"))) {}

WithoutCommentary::~WithoutCommentary() {
    std::fclose(std::exchange(stderr, spoken_to_));
}

LinesOf::LinesOf(std::ofstream& stream) : stream_(stream) {
    std::string path = "/tmp/kavo_truth_XXXXXX";
    const int descriptor = mkstemp(path.data());
    stream_.open(path, std::ios::out | std::ios::app);
    reader_.open(path);
    unlink(path.c_str());
    close(descriptor);
}

std::vector<std::string> LinesOf::new_lines() {
    stream_.flush();
    std::vector<std::string> lines;
    for (std::string line; std::getline(reader_, line);) lines.push_back(line);
    reader_.clear();
    return lines;
}

}  // namespace kavo::model

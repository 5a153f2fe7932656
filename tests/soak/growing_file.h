// A file that somebody else appends to, read line by line as it grows. What has been read gives its room on the disk
// back, so that a run may last for hours.
#pragma once

#include <functional>
#include <string>

namespace kavo::test {

class GrowingFile {
public:
    explicit GrowingFile(const std::string& path);
    ~GrowingFile();
    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;

    // Every whole line that has come since the last call.
    void read_lines(const std::function<void(const std::string& line)>& take);

private:
    int file_;
    long long read_ = 0;
    long long given_back_ = 0;
    std::string rest_;  // of a line whose end has not come yet
};

}  // namespace kavo::test

#include "soak/growing_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

namespace kavo::test {

GrowingFile::GrowingFile(const std::string& path) : file_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    if (file_ < 0) throw std::runtime_error("cannot read " + path);
}

GrowingFile::~GrowingFile() {
    close(file_);
}

void GrowingFile::read_lines(const std::function<void(const std::string&)>& take) {
    constexpr long long hole_bytes = 16 << 20;
    std::string piece(1 << 16, ' ');
    while (true) {
        const ssize_t count = pread(file_, piece.data(), piece.size(), read_);
        if (count <= 0) return;
        read_ += count;
        rest_.append(piece, 0, static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (std::size_t end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n', start)) {
            take(rest_.substr(start, end - start));
            start = end + 1;
        }
        rest_.erase(0, start);
        if (read_ - given_back_ < hole_bytes) continue;
        // A file system that cannot do it keeps the room; the run then needs a larger disk.
        fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, given_back_, read_ - given_back_);
        given_back_ = read_;
    }
}

}  // namespace kavo::test

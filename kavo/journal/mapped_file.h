// A file in memory, as the system gives it: nothing is copied, however large it is.
#pragma once

#include <filesystem>
#include <string_view>

namespace kavo::companion {

class MappedFile {
public:
    // A file that cannot be read has no content, and found() is false.
    explicit MappedFile(const std::filesystem::path& file);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    bool found() const { return found_; }
    std::string_view content() const { return {static_cast<const char*>(at_), size_}; }

private:
    const void* at_ = nullptr;
    std::size_t size_ = 0;
    bool found_ = false;
};

}  // namespace kavo::companion

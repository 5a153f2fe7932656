#include "kavo/journal/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kavo::companion {

MappedFile::MappedFile(const std::filesystem::path& file) {
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return;
    struct stat facts {};
    if (fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode)) {
        found_ = true;
        const auto size = static_cast<std::size_t>(facts.st_size);
        void* const at = size == 0 ? MAP_FAILED : mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
        if (at != MAP_FAILED) {
            at_ = at;
            size_ = size;
        } else {
            found_ = size == 0;
        }
    }
    close(descriptor);
}

MappedFile::~MappedFile() {
    if (size_ != 0) munmap(const_cast<void*>(at_), size_);
}

}  // namespace kavo::companion

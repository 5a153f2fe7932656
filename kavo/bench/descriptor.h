// A descriptor that is closed with this object.
#pragma once

#include <unistd.h>

#include <utility>

namespace kavo::companion {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return number_; }
    bool open() const { return number_ >= 0; }
    int release() { return std::exchange(number_, -1); }
    void reset() {
        if (number_ >= 0) close(release());
    }

private:
    int number_ = -1;
};

}  // namespace kavo::companion

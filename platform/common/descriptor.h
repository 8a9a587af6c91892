#ifndef ZELQ_DESCRIPTOR_H
#define ZELQ_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace zelq {

/// A file descriptor that is closed at the end of its owner's life; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        swap(other);
        return *this;
    }
    ~Descriptor() { reset(-1); }

    int get() const noexcept { return number_; }
    void reset(int number) noexcept {
        if (number_ >= 0) {
            close(number_);
        }
        number_ = number;
    }
    void swap(Descriptor& other) noexcept { std::swap(number_, other.number_); }

private:
    int number_;
};

}  // namespace zelq

#endif

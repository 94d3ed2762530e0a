// File descriptors: one that closes itself, and how many there may be.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <utility>

namespace corvane::program {

/// Owns a descriptor; -1: none.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor() {
        if (m_number >= 0) {
            close(m_number);
        }
    }

    int Get() const { return m_number; }

private:
    int m_number;
};

/// Raises the limit of open descriptors to what the process may have.
void RaiseDescriptorLimit();

/// How many more descriptors the process may open; an estimate where /proc/self/fd is not there.
size_t DescriptorsLeft();

}  // namespace corvane::program

// An open file that is closed with its owner.
#pragma once

#include <span>
#include <utility>

namespace handset_state {

class FileDescriptor {
public:
    FileDescriptor() = default;
    /// @param descriptor  is the object's from here on; negative for none
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~FileDescriptor() { close(); }
    FileDescriptor(FileDescriptor &&other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {
    }
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    explicit operator bool() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }

    /// @return false with errno set, after which a part may be written
    bool writeAll(std::span<const char> bytes);
    /// Closes now what is open. @return false with errno set when data could not be written
    bool close();

private:
    int m_descriptor = -1;
};

} // namespace handset_state

// A part that most values of a type do not have.
#pragma once

#include <memory>
#include <optional>
#include <utility>

namespace support {

/// A value or none, like a std::optional that takes no more room than a pointer. For large parts of
/// what is kept and moved in great numbers.
template <class T>
class Boxed {
public:
    Boxed() = default;
    Boxed(std::nullopt_t) {}
    Boxed(T value) : m_value(std::make_unique<T>(std::move(value))) {}
    Boxed(const Boxed &other) : m_value(other ? std::make_unique<T>(*other) : nullptr) {}
    Boxed(Boxed &&other) noexcept = default;
    ~Boxed() = default;
    Boxed &operator=(const Boxed &other) { return *this = Boxed(other); }
    Boxed &operator=(Boxed &&other) noexcept = default;

    explicit operator bool() const { return m_value != nullptr; }
    bool has_value() const { return m_value != nullptr; }
    // There has to be a value.
    T &operator*() { return *m_value; }
    const T &operator*() const { return *m_value; }
    T *operator->() { return m_value.get(); }
    const T *operator->() const { return m_value.get(); }

    T &emplace() { return *(m_value = std::make_unique<T>()); }
    void reset() { m_value.reset(); }

    friend bool operator==(const Boxed &left, const Boxed &right)
    {
        return left && right ? *left == *right : !left && !right;
    }

private:
    std::unique_ptr<T> m_value;
};

} // namespace support

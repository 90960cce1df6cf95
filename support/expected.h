// One way to fail: a function returns what it makes, or says why it cannot.
#pragma once

#include <optional>
#include <utility>
#include <variant>

namespace support {

/// Marks the error of a function that returns an Expected: `return Unexpected(reason);`
template <class E>
struct Unexpected {
    explicit Unexpected(E why) : error(std::move(why)) {}

    E error;
};

/// A value, or the error that says why there is none. Asking for the one that is not there throws
/// std::bad_variant_access.
template <class T, class E>
class [[nodiscard]] Expected {
public:
    Expected(T value) : m_result(std::in_place_index<0>, std::move(value)) {}
    template <class Other>
    Expected(Unexpected<Other> failure) : m_result(std::in_place_index<1>, std::move(failure.error))
    {
    }

    explicit operator bool() const { return m_result.index() == 0; }
    const T &operator*() const & { return std::get<0>(m_result); }
    T &operator*() & { return std::get<0>(m_result); }
    T &&operator*() && { return std::get<0>(std::move(m_result)); }
    const T *operator->() const { return &**this; }
    T *operator->() { return &**this; }
    const E &error() const { return std::get<1>(m_result); }

private:
    std::variant<T, E> m_result;
};

/// Nothing, or the error that says why something could not be done.
template <class E>
class [[nodiscard]] Expected<void, E> {
public:
    Expected() = default;
    template <class Other>
    Expected(Unexpected<Other> failure) : m_error(std::move(failure.error))
    {
    }

    explicit operator bool() const { return !m_error; }
    /// Throws std::bad_optional_access when there is none.
    const E &error() const { return m_error.value(); }

private:
    std::optional<E> m_error;
};

} // namespace support

/// @file
/// The engine's growable vector, and the map that it builds from two of them.
#pragma once

#include "jem_defs.h"

#include <new>
#include <utility>

/// Growable array. Its capacity is always a multiple of 4 elements; its storage is one block of the
/// engine's memory. Indices and sizes are element counts.
template <class T>
class DMVector {
public:
    /// Empty, without storage.
    DMVector() = default;
    /// Copies every element; empty when there is no memory for them.
    DMVector(const DMVector &other) { Append(other); }
    /// Takes over the storage; the other one is empty afterwards.
    DMVector(DMVector &&other) noexcept { swap(other); }
    /// Copies every element; empty when there is no memory for them.
    DMVector &operator=(const DMVector &other)
    {
        DMVector copy(other);
        swap(copy);
        return *this;
    }
    /// Exchanges the contents.
    DMVector &operator=(DMVector &&other) noexcept
    {
        swap(other);
        return *this;
    }
    ~DMVector() { clear(); }

    /// Elements that there are.
    int size() const { return m_size; }
    /// Elements that there is room for.
    int capacity() const { return m_capacity; }
    /// Whether there are none.
    bool empty() const { return m_size == 0; }

    /// The element at an index, which must be below size().
    T &operator[](int index) { return m_elements[index]; }
    /// The element at an index, which must be below size().
    const T &operator[](int index) const { return m_elements[index]; }
    /// The first element. Growing and clearing end the validity of what begin() and end() return.
    T *begin() { return m_elements; }
    /// Behind the last element.
    T *end() { return m_elements + m_size; }
    /// The first element.
    const T *begin() const { return m_elements; }
    /// Behind the last element.
    const T *end() const { return m_elements + m_size; }

    /// @return the index of the new last element; -1 when the vector cannot grow, which leaves it
    ///         as it was.
    int push_back(const T &element)
    {
        if (m_size == m_capacity) {
            const T copy(element); // the element may live in the block that growing gives back
            return Grow(m_size + 1) ? Construct(copy) : -1;
        }
        return Construct(element);
    }

    /// Makes room for so many elements in one step; push_back makes room for four at a time.
    /// @return false when the vector cannot grow, which leaves it as it was.
    bool reserve(int elements) { return elements <= m_capacity || Grow(elements); }

    /// Removes the element and closes the gap. The index must be below size().
    void remove(int index)
    {
        for (int i = index; i + 1 < m_size; ++i)
            m_elements[i] = std::move(m_elements[i + 1]);
        m_elements[--m_size].~T();
    }

    /// Removes every element and gives back the storage.
    void clear()
    {
        for (int i = m_size; i > 0; --i)
            m_elements[i - 1].~T();
        DmtMemFree(m_elements);
        m_elements = nullptr;
        m_size = m_capacity = 0;
    }

    /// Exchanges the contents; elements stay where they are in memory.
    void swap(DMVector &other) noexcept
    {
        std::swap(m_elements, other.m_elements);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_size, other.m_size);
    }

private:
    void Append(const DMVector &other)
    {
        if (other.m_size == 0 || !Grow(other.m_size))
            return;
        for (const T &element : other)
            Construct(element);
    }

    int Construct(const T &element)
    {
        ::new (static_cast<void *>(m_elements + m_size)) T(element);
        return m_size++;
    }

    bool Grow(int wanted)
    {
        const int capacity = (wanted + 3) / 4 * 4;
        void *const block =
            DmtMemAllocEx(static_cast<std::size_t>(capacity) * sizeof(T), "dmvector", 394);
        if (!block)
            return false;
        T *const elements = static_cast<T *>(block);
        for (int i = 0; i < m_size; ++i) {
            ::new (static_cast<void *>(elements + i)) T(std::move(m_elements[i]));
            m_elements[i].~T();
        }
        DmtMemFree(m_elements);
        m_elements = elements;
        m_capacity = capacity;
        return true;
    }

    T *m_elements = nullptr;
    int m_capacity = 0;
    int m_size = 0;
};

/// The engine's map: two parallel vectors, keys()[i] belonging to values()[i]. Look-up is a linear
/// scan; of two equal keys the first one counts.
template <class Key, class Value>
class DMMap {
public:
    /// Pairs that there are.
    int size() const { return m_keys.size(); }
    /// The keys in the order in which they were put.
    const DMVector<Key> &keys() const { return m_keys; }
    /// The values, in the order of the keys.
    const DMVector<Value> &values() const { return m_values; }

    /// @return the index of the first key equal to key; -1 when there is none.
    int find(const Key &key) const
    {
        for (int i = 0; i < m_keys.size(); ++i)
            if (m_keys[i] == key)
                return i;
        return -1;
    }

    /// Replaces the value of an existing key, else appends the pair. A replaced value is
    /// overwritten; what it pointed to stays the caller's business.
    /// @return the index of the pair; -1 when a vector cannot grow, which leaves the map as it was.
    int put(const Key &key, const Value &value)
    {
        const int existing = find(key);
        if (existing >= 0) {
            m_values[existing] = value;
            return existing;
        }
        const int keyIndex = m_keys.push_back(key);
        if (keyIndex < 0)
            return -1;
        if (m_values.push_back(value) != keyIndex) {
            m_keys.remove(keyIndex); // a key never stands without its value
            return -1;
        }
        return keyIndex;
    }

    /// Removes the pair and closes the gap in both vectors. The index must be below size().
    void remove(int index)
    {
        m_keys.remove(index);
        m_values.remove(index);
    }

    /// Removes every pair and gives back the storage.
    void clear()
    {
        m_keys.clear();
        m_values.clear();
    }

private:
    DMVector<Key> m_keys;
    DMVector<Value> m_values;
};

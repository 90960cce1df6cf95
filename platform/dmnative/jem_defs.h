/// @file
/// The engine's memory, reference counting and smart pointer.
///
/// Everything that crosses the boundary between the engine and a plug-in lives in the engine's own
/// memory: trees, nodes, strings and vectors come from DmtMemAllocEx and go back with DmtMemFree.
#pragma once

#include <cstddef>
#include <cstdint>

/// What the engine's library exports.
#define DMNATIVE_API __attribute__((visibility("default")))

extern "C" {

/// Allocates a block of the engine's memory.
/// @param size   bytes; the block is aligned for any type
/// @param file   name of the allocating source file, for the engine's leak reports; a literal
/// @param line   line in that file
/// @return the block, uninitialised. The caller owns it until DmtMemFree. Null only when memory is
///         exhausted; callers that construct objects rely on the engine not to let that happen.
DMNATIVE_API void *DmtMemAllocEx(std::size_t size, const char *file, int line);

/// Gives back a block of DmtMemAllocEx. Null is allowed and does nothing.
DMNATIVE_API void DmtMemFree(void *block);
}

/// Base of every object that the engine counts. A new object has count 0: the first JemSmartPtr
/// that holds it raises that to 1.
class DMNATIVE_API JemRefCounted {
public:
    /// An object that is counted has one place.
    JemRefCounted(const JemRefCounted &) = delete;
    /// An object that is counted has one place.
    JemRefCounted &operator=(const JemRefCounted &) = delete;

    /// Adds one reference.
    void TakeReference() { ++m_refCount; }

    /// Drops one reference. At zero or below the object is destroyed through its virtual deleting
    /// destructor.
    void DropReference()
    {
        if (--m_refCount <= 0)
            delete this;
    }

    /// References that are held now.
    std::int64_t RefCount() const { return m_refCount; }

    /// Objects of the engine report this header as their allocation site, whatever their class.
    static void *operator new(std::size_t size) { return DmtMemAllocEx(size, "jem_defs", 255); }
    /// Gives the block back to the engine.
    static void operator delete(void *object) { DmtMemFree(object); }

protected:
    JemRefCounted() = default;
    virtual ~JemRefCounted() = default; // slots 0 and 1 of every table below

private:
    std::int64_t m_refCount = 0;
};

/// The engine's counting pointer: holds one reference to its object. Not thread-safe; the engine
/// runs every command on one thread.
template <class T>
class JemSmartPtr {
public:
    /// Holds nothing.
    JemSmartPtr() = default;
    /// Takes a reference to the object; null holds nothing.
    JemSmartPtr(T *object) : m_object(object) { Acquire(m_object); }
    /// Takes one more reference to the other's object.
    JemSmartPtr(const JemSmartPtr &other) : m_object(other.m_object) { Acquire(m_object); }
    /// Takes one more reference to the object of a pointer to a class derived from T.
    template <class U>
    JemSmartPtr(const JemSmartPtr<U> &other) : m_object(other.get())
    {
        Acquire(m_object);
    }
    /// Drops the reference.
    ~JemSmartPtr() { Drop(m_object); }

    /// Takes the new object before it drops the old one, so that an object reachable only through
    /// the old one survives.
    JemSmartPtr &operator=(const JemSmartPtr &other)
    {
        if (m_object != other.m_object) {
            T *const old = m_object;
            m_object = other.m_object;
            Acquire(m_object);
            Drop(old);
        }
        return *this;
    }

    /// Drops the reference and holds nothing.
    void reset() { *this = JemSmartPtr(); }
    /// The object, which stays the pointer's; null for none.
    T *get() const { return m_object; }
    /// A member of the object, which must not be null.
    T *operator->() const { return m_object; }
    /// The object, which must not be null.
    T &operator*() const { return *m_object; }
    /// Whether there is an object.
    explicit operator bool() const { return m_object != nullptr; }

private:
    static void Acquire(T *object)
    {
        if (object)
            object->TakeReference();
    }
    static void Drop(T *object)
    {
        if (object)
            object->DropReference();
    }

    T *m_object = nullptr;
};

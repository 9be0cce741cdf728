// An owned, optional sub-object that copies deeply: a null pointer stays
// null, anything else is copied with its copy constructor. Model classes
// hold their optional parts this way so that their own copies can be the
// compiler's.
#pragma once

#include <memory>

namespace TesseraLib {

template <class T>
class DeepPtr {
public:
    DeepPtr() = default;
    explicit DeepPtr(T* owned) : m_ptr(owned) {}
    DeepPtr(const DeepPtr& other) : m_ptr(Copy(other)) {}
    DeepPtr(DeepPtr&& other) noexcept = default;
    DeepPtr& operator=(const DeepPtr& other) {
        if (this != &other) {
            m_ptr.reset(Copy(other));
        }
        return *this;
    }
    DeepPtr& operator=(DeepPtr&& other) noexcept = default;
    ~DeepPtr() = default;

    const T* get() const { return m_ptr.get(); }
    T* get() { return m_ptr.get(); }
    void reset(T* owned = nullptr) { m_ptr.reset(owned); }

private:
    static T* Copy(const DeepPtr& other) { return other.m_ptr ? new T(*other.m_ptr) : nullptr; }

    std::unique_ptr<T> m_ptr;
};

}  // namespace TesseraLib

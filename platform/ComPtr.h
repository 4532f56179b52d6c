#pragma once

#include <cstddef>
#include <utility>

namespace kest {

/// Holds one counted reference to an interface. Made from a raw pointer it adds a reference; `Attach` takes over one
/// that the caller holds.
template <class T>
class CComPtr {
public:
    CComPtr() = default;
    CComPtr(std::nullptr_t) {}
    CComPtr(T* p) : m_p(p) {
        if (m_p) m_p->AddRef();
    }
    CComPtr(const CComPtr& other) : CComPtr(other.m_p) {}
    CComPtr(CComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    CComPtr& operator=(CComPtr other) noexcept {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~CComPtr() {
        if (m_p) m_p->Release();
    }

    static CComPtr Attach(T* p) {
        CComPtr result;
        result.m_p = p;
        return result;
    }
    /// Gives the reference away: the caller releases it.
    T* Detach() { return std::exchange(m_p, nullptr); }
    /// The address for an out-parameter; releases what was held.
    T** Put() {
        *this = nullptr;
        return &m_p;
    }

    T* Get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    explicit operator bool() const { return m_p != nullptr; }

private:
    T* m_p = nullptr;
};

}  // namespace kest

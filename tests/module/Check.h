// What the cases of this program check with. A case that finds something wrong throws CFailure; the program
// then prints one line and ends with 1.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace kest {

class CFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// @param strWhat  said when it is not so.
inline void Require(bool bTrue, const std::string& strWhat) {
    if (!bTrue) throw CFailure(strWhat);
}

std::string ToText(HRESULT hr);

inline void RequireResult(HRESULT hr, HRESULT hrExpected, const std::string& strWhat) {
    Require(hr == hrExpected, strWhat + ": " + ToText(hr) + " instead of " + ToText(hrExpected));
}
inline void RequireOk(HRESULT hr, const std::string& strWhat) {
    Require(SUCCEEDED(hr), strWhat + ": " + ToText(hr));
}

/// A counted reference to an interface.
template <class T>
class CRef {
public:
    CRef() = default;
    CRef(const CRef& other) : m_p(other.m_p) {
        if (m_p) m_p->AddRef();
    }
    CRef(CRef&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    CRef& operator=(CRef other) noexcept {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~CRef() {
        if (m_p) m_p->Release();
    }
    T* operator->() const { return m_p; }
    T* Get() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    /// For a call that gives out a reference; what was held is released.
    T** Put() {
        *this = CRef();
        return &m_p;
    }
    void** PutVoid() { return reinterpret_cast<void**>(Put()); }

private:
    T* m_p = nullptr;
};

/// Another interface of an object; empty when it has none.
template <class T, class From>
CRef<T> Query(const CRef<From>& pFrom, REFIID riid = __uuidof(T)) {
    CRef<T> pTo;
    pFrom->QueryInterface(riid, pTo.PutVoid());
    return pTo;
}

/// Makes an object of a registered class.
template <class T>
CRef<T> Create(REFCLSID clsid, const std::string& strWhat) {
    CRef<T> pNew;
    RequireOk(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, __uuidof(T), pNew.PutVoid()),
              "cannot make " + strWhat);
    return pNew;
}

}  // namespace kest

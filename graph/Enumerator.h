#pragma once

#include <functional>

#include "graph/Guard.h"
#include "graph/MediaType.h"
#include "graph/Unknown.h"

namespace kest {

/// Lists the pins of a filter (`IEnumPins`) or the media types of a pin (`IEnumMediaTypes`).
///
/// The list stays with its owner, whose version number changes with it. An enumerator of an older version returns
/// VFW_E_ENUM_OUT_OF_SYNC from everything but `Reset`. For one thread at a time.
template <class Interface, class Item>
class CEnumerator final : public CImplements<CUnknown, Interface> {
public:
    /// Access to the list; both functions keep the owner alive.
    struct Source {
        /// Gives item nIndex to a receiver that disposes of it. @return S_OK; S_FALSE past the end; an error.
        std::function<HRESULT(int nIndex, Item** ppItem)> Fetch;
        std::function<int()> Version;  // changes when the list does
    };
    CEnumerator(REFIID riid, Source source) : CEnumerator(riid, std::move(source), 0, 0) {
        m_nVersion = m_source.Version();
    }

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == m_riid) return this->GetInterface(static_cast<Interface*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }

    /// @return S_OK with nItems items, S_FALSE with fewer; E_POINTER; E_INVALIDARG when several are wanted without a
    ///         place for their number; the error of an item, with none of them and the position as before.
    HRESULT STDMETHODCALLTYPE Next(ULONG nItems, Item** ppItems, ULONG* pnFetched) override {
        return Guard([&]() -> HRESULT {
            if (pnFetched) *pnFetched = 0;
            if (!ppItems) return E_POINTER;
            if (nItems > 1 && !pnFetched) return E_INVALIDARG;
            if (IsOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
            Fetched fetched{ppItems};
            HRESULT hr = S_OK;
            while (fetched.nItems < nItems && hr == S_OK) {
                hr = FetchAt(m_nNext + static_cast<int>(fetched.nItems), fetched.ppItems + fetched.nItems);
                if (hr == S_OK) ++fetched.nItems;
            }
            if (FAILED(hr)) return hr;
            m_nNext += static_cast<int>(fetched.nItems);
            if (pnFetched) *pnFetched = fetched.nItems;
            fetched.nItems = 0;  // they are the caller's
            return hr;
        });
    }
    /// @return S_OK; S_FALSE when the list ends first: the enumerator is then at its end.
    HRESULT STDMETHODCALLTYPE Skip(ULONG nItems) override {
        return Guard([&]() -> HRESULT {
            if (IsOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
            for (; nItems > 0; --nItems, ++m_nNext) {
                Item* pItem = nullptr;
                if (const HRESULT hr = FetchAt(m_nNext, &pItem); hr != S_OK) return hr;
                Dispose(pItem);
            }
            return S_OK;
        });
    }
    /// Goes back to the first item, of the list as it is now.
    HRESULT STDMETHODCALLTYPE Reset() override {
        m_nNext = 0;
        m_nVersion = m_source.Version();
        return S_OK;
    }
    /// A second enumerator at the same position.
    HRESULT STDMETHODCALLTYPE Clone(Interface** ppEnum) override {
        if (!ppEnum) return E_POINTER;
        *ppEnum = nullptr;
        return Guard([&]() -> HRESULT {
            if (IsOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
            *ppEnum = CComPtr<Interface>(new CEnumerator(m_riid, m_source, m_nNext, m_nVersion)).Detach();
            return S_OK;
        });
    }

private:
    /// Items fetched so far, given back unless the caller gets them.
    struct Fetched {
        Item** ppItems;
        ULONG nItems = 0;
        ~Fetched() {
            while (nItems > 0) Dispose(std::exchange(ppItems[--nItems], nullptr));
        }
    };

    CEnumerator(REFIID riid, Source source, int nNext, int nVersion)
        : m_riid(riid), m_source(std::move(source)), m_nNext(nNext), m_nVersion(nVersion) {}

    static void Dispose(IPin* pPin) { pPin->Release(); }
    static void Dispose(AM_MEDIA_TYPE* pType) { DeleteMediaType(pType); }

    bool IsOutOfSync() const { return m_nVersion != m_source.Version(); }
    HRESULT FetchAt(int nIndex, Item** ppItem) const {
        *ppItem = nullptr;
        return m_source.Fetch(nIndex, ppItem);
    }

    const IID m_riid;       // of the interface
    const Source m_source;  // the list
    int m_nNext;            // index of the next item
    int m_nVersion;         // version of the list that m_nNext counts in
};

using CEnumPins = CEnumerator<IEnumPins, IPin>;
using CEnumMediaTypes = CEnumerator<IEnumMediaTypes, AM_MEDIA_TYPE>;

}  // namespace kest

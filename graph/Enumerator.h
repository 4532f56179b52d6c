#pragma once

#include <functional>

#include "graph/MediaType.h"
#include "graph/Unknown.h"

namespace kest {

/// Lists the pins of a filter (`IEnumPins`) or the media types of a pin (`IEnumMediaTypes`).
///
/// The list lives with its owner, which says by a version number that it has changed; an enumerator of an
/// older version answers VFW_E_ENUM_OUT_OF_SYNC until `Reset`. One thread at a time.
template <class Interface, class Item>
class CEnumerator final : public CImplements<CUnknown, Interface> {
public:
    /// How to reach the list; both functions keep the owner alive.
    struct Source {
        std::function<Item*(int nIndex)> Fetch;  // the item, for the receiver to dispose of; null: past end
        std::function<int()> Version;            // changes when the list does
    };
    CEnumerator(REFIID riid, Source source, int nNext = 0)
        : m_riid(riid), m_source(std::move(source)), m_nNext(nNext), m_nVersion(m_source.Version()) {}

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == m_riid) return this->GetInterface(static_cast<Interface*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }

    /// @return S_OK with nItems items, S_FALSE with fewer; E_POINTER; E_INVALIDARG when several are asked for
    ///         without a place for their number.
    HRESULT STDMETHODCALLTYPE Next(ULONG nItems, Item** ppItems, ULONG* pnFetched) override {
        if (pnFetched) *pnFetched = 0;
        if (!ppItems) return E_POINTER;
        if (nItems > 1 && !pnFetched) return E_INVALIDARG;
        if (m_nVersion != m_source.Version()) return VFW_E_ENUM_OUT_OF_SYNC;
        ULONG nFetched = 0;
        for (; nFetched < nItems; ++nFetched, ++m_nNext) {
            Item* pItem = m_source.Fetch(m_nNext);
            if (!pItem) break;
            ppItems[nFetched] = pItem;
        }
        if (pnFetched) *pnFetched = nFetched;
        return nFetched == nItems ? S_OK : S_FALSE;
    }
    /// S_FALSE when the list ends first.
    HRESULT STDMETHODCALLTYPE Skip(ULONG nItems) override {
        for (; nItems > 0; --nItems) {
            Item* pItem = nullptr;
            if (const HRESULT hr = Next(1, &pItem, nullptr); hr != S_OK) return hr;
            Dispose(pItem);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        m_nNext = 0;
        m_nVersion = m_source.Version();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(Interface** ppEnum) override {
        if (!ppEnum) return E_POINTER;
        *ppEnum = nullptr;
        if (m_nVersion != m_source.Version()) return VFW_E_ENUM_OUT_OF_SYNC;
        return this->GetInterface(static_cast<Interface*>(new CEnumerator(m_riid, m_source, m_nNext)),
                                  reinterpret_cast<void**>(ppEnum));
    }

private:
    static void Dispose(IPin* pPin) { pPin->Release(); }
    static void Dispose(AM_MEDIA_TYPE* pType) { DeleteMediaType(pType); }

    const IID m_riid;       // the interface it answers to
    const Source m_source;  // the list
    int m_nNext;            // index of the next item
    int m_nVersion;         // version of the list that m_nNext counts in
};

using CEnumPins = CEnumerator<IEnumPins, IPin>;
using CEnumMediaTypes = CEnumerator<IEnumMediaTypes, AM_MEDIA_TYPE>;

}  // namespace kest

#pragma once

#include "graph/BaseFilter.h"

namespace kest {

/// The source of a graph: a filter with one output pin, "Output".
class CSourceFilter : public CBaseFilter {
public:
    CSourceFilter() : CBaseFilter(nullptr, nullptr, &m_csPins, kSourceClass) {}

    int GetPinCount() override { return 1; }
    /// How far the bytes have been taken.
    virtual LONGLONG GetPosition() const = 0;
    /// They have been taken to their end.
    virtual bool HasEnded() const = 0;
    /// S_OK; else why nobody takes them any more.
    virtual HRESULT GetResult() const { return S_OK; }

protected:
    CCritSec m_csPins;  // the object lock

private:
    static constexpr CLSID kSourceClass = {
        0x8D1E5A30, 0x52B7, 0x4C0E, {0x9B, 0x61, 0x3E, 0x0F, 0x7C, 0x24, 0xD9, 0x15}};
};

}  // namespace kest

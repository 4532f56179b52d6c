#pragma once

#include "host/ReadablePin.h"
#include "host/SourceFilter.h"

namespace kest {

/// A source that does not deliver: the downstream filter reads it, see CReadablePin.
class CFileSource final : public CSourceFilter {
public:
    /// @param pReader  where the bytes come from.
    explicit CFileSource(CComPtr<IAsyncReader> pReader);

    CBasePin* GetPin(int n) override { return n == 0 ? &m_output : nullptr; }
    /// Where the last read ended, in bytes.
    LONGLONG GetPosition() const override { return m_output.GetReadPosition(); }
    /// The last read ended at the end, as it was when the source was made, or behind it.
    bool HasEnded() const override { return GetPosition() >= m_llLength; }

private:
    LONGLONG m_llLength = 0;  // bytes
    CReadablePin<CBasePin> m_output;
};

}  // namespace kest

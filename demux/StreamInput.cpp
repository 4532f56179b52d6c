#include "demux/StreamInput.h"

#include <algorithm>

namespace kest {

CStreamInput::CStreamInput() : m_pStorage(std::make_unique_for_overwrite<std::uint8_t[]>(kCapacity)) {}

void CStreamInput::SetSource(CByteSource* pSource, bool bPositioned) {
    m_pSource = pSource;
    m_bPositioned = bPositioned;
    SeekTo(0);
}

void CStreamInput::SeekTo(std::int64_t llPosition) {
    Drop();
    m_llEnd = llPosition;
}

bool CStreamInput::SkipSection() {
    const Bytes length = Read(2);
    if (length.empty()) return false;
    const unsigned nLength = Read16(length, 0);
    return nLength == 0 || !Read(nLength).empty();
}

/// Fetches until n bytes are unread. @return whether they are.
bool CStreamInput::Fill(std::uint32_t n) {
    if (!m_pSource || n > kMaxPeek) return false;
    while (m_nEnd - m_nBegin < n) {
        MakeRoom();
        const std::uint32_t nFetched =
            m_pSource->Fetch({.room = {m_pStorage.get() + m_nEnd, kCapacity - m_nEnd},
                              .llPosition = m_llEnd,
                              .nMissing = n - (m_nEnd - m_nBegin),
                              .nWanted = n});
        if (nFetched == 0) return false;
        m_nEnd += nFetched;
        m_llEnd += nFetched;
    }
    return true;
}

/// Moves what is unread to the front when there is little room behind it.
void CStreamInput::MakeRoom() {
    if (m_nBegin < m_nEnd && kCapacity - m_nEnd >= kLeastRoom) return;
    std::copy(m_pStorage.get() + m_nBegin, m_pStorage.get() + m_nEnd, m_pStorage.get());
    m_nEnd -= m_nBegin;
    m_nBegin = 0;
}

}  // namespace kest

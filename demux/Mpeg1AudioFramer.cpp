#include "demux/Mpeg1AudioFramer.h"

#include <algorithm>
#include <optional>

#include "demux/MpegAudioHeader.h"

namespace kest {
namespace {

constexpr std::size_t kHeaderSize = 4;  // bytes of an audio frame's header
constexpr unsigned kCallsToSettle = 3;  // before this call, the first header is cut at

// Of the header's third byte: sampling_frequency, padding_bit, private_bit.
constexpr unsigned k44100 = 0x00, k48000 = 0x04, k32000 = 0x08, kPadding = 0x02, kFrequencyBits = 0x0C,
                   kPrivate = 0x01;

bool MaySettle(std::uint8_t nThird) {
    const unsigned n = nThird & (kFrequencyBits | kPadding);
    return n == (k44100 | kPadding) || n == k48000 || n == k32000;
}

bool MayCut(std::uint8_t nThird) {
    const unsigned n = nThird & (kFrequencyBits | kPrivate);
    return n == k48000 || n == k32000;
}

/// Index of the next header at nFrom or behind whose third byte is usable; the size when there is none.
template <class IsUsable>
std::size_t FindHeader(Bytes data, std::size_t nFrom, IsUsable isUsable) {
    for (std::size_t i = nFrom; i + kHeaderSize <= data.size(); ++i) {
        const auto first =
            std::find(data.begin() + static_cast<std::ptrdiff_t>(i), data.end() - (kHeaderSize - 1), 0xFF);
        if (first == data.end() - (kHeaderSize - 1)) break;
        i = static_cast<std::size_t>(first - data.begin());
        const bool bHeader = (first[1] & 0xF8) == 0xF8 && (first[2] & 0xF0) != 0xF0 && first[3] == 0;
        if (bHeader && isUsable(first[2])) return i;
    }
    return data.size();
}

}  // namespace

void CMpeg1AudioFramer::Begin() {
    Reset();
    m_nCalls = 0;
}

void CMpeg1AudioFramer::Reset() {
    m_output.Drop();
    m_state = EState::Locking;
}

void CMpeg1AudioFramer::Push(Bytes data, std::int64_t llPts) {
    if (llPts == kNoFrameTime && m_nCalls == 0) {
        m_llPendingPts = llPts;
        Append(data);
        return Flush();
    }
    m_nCalls = std::min(m_nCalls + 1, kCallsToSettle);
    if (m_state == EState::Cutting) return Cut(data, llPts, m_output.GetFill());
    Settle(data);
    if (m_bDrain && m_state == EState::Cutting) return Cut(data, llPts, m_output.GetFill());
    if (m_bDrain) Flush();
    m_llPendingPts = llPts;
    if (m_state != EState::Cutting) return Append(data);
    // The payload that confirms the length counts as a part of the block before it is cut: all of it or, when there
    // is no room, nothing.
    if (!m_output.HasRoom(data.size())) data = {};
    Cut(data, llPts, m_output.GetFill() + data.size());
}

/// Goes to the next state when the data has a header that allows it.
void CMpeg1AudioFramer::Settle(Bytes data) {
    const std::size_t nHeader = FindHeader(data, 0, MaySettle);
    if (nHeader == data.size()) return;
    const std::uint32_t nLength = ParseMpegAudioHeader(data.subspan(nHeader)).GetFrameLength();
    if (m_state == EState::Locking) {
        m_nFrameLength = nLength;
        m_state = EState::Verifying;
    } else if (nLength == m_nFrameLength) {
        m_state = EState::Cutting;
    }
}

/// Ends the block, and begins the next with the data behind the cut.
/// @param nHeld  bytes that count as those of the block, in the search for the cut.
void CMpeg1AudioFramer::Cut(Bytes data, std::int64_t llPts, std::size_t nHeld) {
    const std::size_t nCut = FindCut(data, nHeld);
    Append(data.first(nCut));
    m_bDrain ? Flush() : Queue();
    m_llPendingPts = llPts;
    Append(data.subspan(nCut));
}

FRAME_INFO CMpeg1AudioFramer::MakeInfo() const {
    FRAME_INFO info{};
    info.llPts = info.llDts = m_llPendingPts;
    return info;
}

void CMpeg1AudioFramer::Queue() { m_output.Queue(MakeInfo()); }

void CMpeg1AudioFramer::Flush() {
    if (!m_output.IsEmpty()) Queue();
}

/// The last header with which the block is still shorter than an audio frame; without such a one the first
/// header, or the end.
std::size_t CMpeg1AudioFramer::FindCut(Bytes data, std::size_t nHeld) const {
    std::optional<std::size_t> last;
    std::size_t nHeader = FindHeader(data, 0, MayCut);
    for (; nHeader < data.size(); nHeader = FindHeader(data, nHeader + 1, MayCut)) {
        if (m_nCalls < kCallsToSettle) break;
        if (nHeld + nHeader + kHeaderSize >= m_nFrameLength) break;
        last = nHeader;
    }
    return last.value_or(nHeader);
}

void CMpeg1AudioFramer::Append(Bytes data) {
    if (!data.empty()) m_output.Append(data, MakeInfo());
}

}  // namespace kest

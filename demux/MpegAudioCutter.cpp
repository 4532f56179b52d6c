#include "demux/MpegAudioCutter.h"

#include <algorithm>

#include "demux/MpegAudioHeader.h"

namespace kest {
namespace {

constexpr std::size_t kHeaderSize = 4;

/// The audio frame at the index, if it has a header of the standards there and a length.
std::optional<MpegAudioFrame> ReadFrame(Bytes bytes, std::size_t nIndex) {
    constexpr int kMpeg2 = 2;
    if (nIndex + kHeaderSize > bytes.size()) return std::nullopt;
    const auto frame = ParseAnyMpegAudioHeader(bytes.subspan(nIndex, kHeaderSize));
    return frame && frame->nVersion <= kMpeg2 && frame->nSize > 0 ? frame : std::nullopt;
}

/// The first audio frame at nFrom or behind that another of its kind follows; without such a one, the first that the
/// bytes do not reach beyond.
std::optional<std::size_t> FindLock(Bytes bytes, std::size_t nFrom) {
    std::optional<std::size_t> likely;
    for (std::size_t i = nFrom; i + kHeaderSize <= bytes.size(); ++i) {
        i = static_cast<std::size_t>(
            std::find(bytes.begin() + static_cast<std::ptrdiff_t>(i), bytes.end(), 0xFF) - bytes.begin());
        const auto frame = ReadFrame(bytes, i);
        if (!frame) continue;
        const std::size_t nEnd = i + frame->nSize;
        if (nEnd + kHeaderSize > bytes.size()) {
            if (!likely) likely = i;
            continue;
        }
        const auto next = ReadFrame(bytes, nEnd);
        if (next && next->nCommonBits == frame->nCommonBits) return i;
    }
    return likely;
}

}  // namespace

void CMpegAudioCutter::Reset() {
    m_held.Reset();
    m_bLocked = false;
    m_llPts = kNoFrameTime;
}

void CMpegAudioCutter::Push(Bytes data, std::int64_t llPts) {
    if (!m_held.HasRoom(data.size())) {
        Flush();
        Reset();
    }
    const std::size_t nBegin = m_held.GetFill();
    m_held.Append(data);
    if (const auto nFrame = FindFrame(m_held.GetBytes(), nBegin)) {
        Queue(*nFrame);
        m_bLocked = true;
        m_llPts = llPts;
    } else if (!m_bLocked) {
        Queue(nBegin);
        m_llPts = llPts;
        if (m_bDrain) return;
        m_output.CountLost(m_held.GetFill());
        Reset();
    }
}

/// The first audio frame that begins at nFrom or behind. None: there is no such one, and without frames at all the
/// lock is lost.
std::optional<std::size_t> CMpegAudioCutter::FindFrame(Bytes bytes, std::size_t nFrom) {
    auto nFrame = m_bLocked ? std::optional<std::size_t>(0) : FindLock(bytes, 0);
    while (nFrame) {
        const bool bWhole = *nFrame + kHeaderSize <= bytes.size();  // its header
        if (!bWhole) return *nFrame >= nFrom && *nFrame < bytes.size() ? nFrame : std::nullopt;
        const auto frame = ReadFrame(bytes, *nFrame);
        if (!frame) {
            nFrame = FindLock(bytes, *nFrame + 1);
        } else if (*nFrame >= nFrom) {
            return nFrame;
        } else {
            *nFrame += frame->nSize;
        }
    }
    m_bLocked = false;
    return std::nullopt;
}

/// Queues the first bytes of what is held as a block.
void CMpegAudioCutter::Queue(std::size_t nSize) {
    const bool bWanted = m_bDrain || m_llPts != kNoFrameTime;
    if (nSize > 0 && bWanted) {
        m_output.QueueFrame(m_held.GetBytes().first(nSize), {.llPts = m_llPts, .llDts = m_llPts});
    } else {
        m_output.CountLost(nSize);
    }
    m_held.Consume(static_cast<std::int32_t>(nSize));
}

}  // namespace kest

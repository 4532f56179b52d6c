#include "demux/VideoFrameScanner.h"

#include <algorithm>

#include "demux/PesHeader.h"
#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"

namespace kest {
namespace {

constexpr std::uint32_t kVideoPacket = MakeStartCode(kFirstVideoStreamId);
constexpr std::int64_t kCodeSize = 4;

/// PTS_DTS_flags 2 or 3; of a fixed header.
bool HasPts(Bytes header) { return header[7] >> 7 != 0; }

}  // namespace

void CVideoFrameScanner::SeekTo(std::int64_t llPosition) {
    m_llPosition = llPosition;
    m_window.Clear();
}

// ---------------- forward

CVideoFrameScanner::EFrame CVideoFrameScanner::ReadFrameForward() {
    const std::int64_t llBegin = m_llPosition;
    const EFrame frame = AssembleFrame();
    if (frame == EFrame::None) m_llPosition = std::max(llBegin, m_source.GetEnd());
    if (frame == EFrame::Failed) m_llPosition = llBegin;
    return frame;
}

CVideoFrameScanner::EFrame CVideoFrameScanner::AssembleFrame() {
    m_frame.Reset();
    for (bool bBegun = false;;) {
        const Bytes header = FindPacket();
        if (header.empty()) return GetFailure();
        if (HasPts(header)) {
            if (bBegun) return EFrame::Found;
            bBegun = true;
            m_llFramePos = m_llPosition;
        }
        if (!bBegun) {
            m_llPosition += kPesFixedHeader;
        } else if (!AppendPayload(header)) {
            return GetFailure();
        }
    }
}

/// Goes to the next video packet. @return its fixed header.
Bytes CVideoFrameScanner::FindPacket() {
    for (;;) {
        const Bytes bytes = m_window.From(m_llPosition, kCodeSize);
        if (bytes.empty()) return {};
        if (const auto nFound = FindStartCode(bytes, kVideoPacket)) {
            m_llPosition += static_cast<std::int64_t>(*nFound);
            return m_window.From(m_llPosition, kPesFixedHeader);
        }
        m_llPosition += static_cast<std::int64_t>(bytes.size()) - (kCodeSize - 1);
    }
}

/// Adds the payload of the packet that the scanner stands on to the frame and goes behind it. A length of 0,
/// or below that of the header, means no payload.
bool CVideoFrameScanner::AppendPayload(Bytes header) {
    const int nHeaderLength = header[8];                         // PES_header_data_length
    const int nPayload = Read16(header, 4) - nHeaderLength - 3;  // of PES_packet_length
    m_llPosition += kPesFixedHeader + nHeaderLength;
    if (nPayload <= 0) return true;
    std::span<std::uint8_t> room = m_frame.Reserve(static_cast<std::uint32_t>(nPayload));
    if (room.empty()) m_llPosition += nPayload;
    while (!room.empty()) {
        const Bytes bytes = m_window.From(m_llPosition, 1);
        if (bytes.empty()) return false;
        const std::size_t nCount = std::min(bytes.size(), room.size());
        std::copy_n(bytes.begin(), nCount, room.begin());
        room = room.subspan(nCount);
        m_llPosition += static_cast<std::int64_t>(nCount);
    }
    return true;
}

// ---------------- backward

CVideoFrameScanner::EFrame CVideoFrameScanner::ReadFrameBackward() {
    if (const EFrame packet = FindPacketBackward(); packet != EFrame::Found) return packet;
    const std::int64_t llFound = m_llPosition;
    const EFrame frame = AssembleFrame();
    m_llPosition = llFound;
    return frame;
}

/// Goes to the nearest packet with a PTS whose start code lies wholly before this position. A header that the
/// end of the source cuts off has none.
CVideoFrameScanner::EFrame CVideoFrameScanner::FindPacketBackward() {
    std::int64_t llEnd = m_llPosition;
    while (llEnd >= kCodeSize) {
        const Bytes bytes = m_window.Before(llEnd, kCodeSize);
        if (bytes.empty()) return GetFailure();
        const std::int64_t llBegin = llEnd - static_cast<std::int64_t>(bytes.size());
        const auto nFound = FindLastStartCode(bytes, kVideoPacket);
        if (!nFound) {
            llEnd = llBegin + kCodeSize - 1;
            continue;
        }
        llEnd = llBegin + static_cast<std::int64_t>(*nFound);
        const Bytes header = m_window.From(llEnd, kPesFixedHeader);
        if (header.empty() && m_window.HasFailed()) return EFrame::Failed;
        if (!header.empty() && HasPts(header)) {
            m_llPosition = llEnd;
            return EFrame::Found;
        }
    }
    m_llPosition = 0;
    return EFrame::None;
}

}  // namespace kest

#include "demux/TrickPlay.h"

#include <algorithm>
#include <utility>

#include "demux/Mpeg4Headers.h"
#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr int kMostFramesFast = 50;   // that one step of fast reverse passes
constexpr int kMostFramesSlow = 150;  // that a slow mode's search for a key frame passes

/// Whether the frame is MPEG-1 or MPEG-2 video, which has no VOP, and its first picture is an I picture.
bool BeginsWithIntraPicture(Bytes frame) {
    const auto nPicture = FindStartCode(frame, MakeStartCode(kPicture));
    return nPicture && IsIntraPicture(frame.subspan(*nPicture)).value_or(false) &&
           !FindStartCode(frame, MakeStartCode(kVop));
}

}  // namespace

void CTrickPlay::SeekTo(std::int64_t llPosition) {
    const std::int64_t llLast = std::max(m_host.GetEnd(), std::int64_t{0});
    m_scanner.SeekTo(std::clamp(llPosition, std::int64_t{0}, llLast));
    m_bNewSegment = true;
}

CTrickPlay::EStep CTrickPlay::Step(int nRate) {
    if (nRate > kNormalRate) return FastForward(nRate / 10);
    if (nRate <= -kNormalRate) return FastReverse(-(nRate / 10));
    if (nRate > 0 && nRate < kNormalRate) return SlowForward();
    if (nRate < 0) return SlowReverse();
    return EStep::Pause;
}

// ---------------- fast

CTrickPlay::EStep CTrickPlay::FastForward(int nEvery) {
    for (int nKeyFrames = 0; nKeyFrames < nEvery && m_host.MayGoOn();) {
        if (m_scanner.ReadFrameForward() != EFrame::Found) return EStep::Pause;
        if (IsKeyFrame() && ++nKeyFrames == nEvery) Deliver(/*bNoVideo=*/false);
    }
    return EStep::Done;
}

CTrickPlay::EStep CTrickPlay::FastReverse(int nEvery) {
    int nKeyFrames = 0;
    for (int i = 0; i < kMostFramesFast && nKeyFrames < nEvery && m_host.MayGoOn(); ++i) {
        if (m_scanner.ReadFrameBackward() != EFrame::Found) return EStep::Pause;
        if (IsKeyFrame() && ++nKeyFrames == nEvery) Deliver(/*bNoVideo=*/false);
    }
    return EStep::Done;
}

// ---------------- slow

CTrickPlay::EStep CTrickPlay::SlowForward() {
    const std::int64_t llBegin = m_scanner.GetPosition();
    if (!m_host.MayGoOn()) return EStep::Done;
    if (m_scanner.ReadFrameForward() != EFrame::Found) return EStep::Pause;
    const bool bFirst = std::exchange(m_bNewSegment, false);
    if (bFirst && !IsKeyFrame()) return RebuildForward(llBegin);
    Deliver(/*bNoVideo=*/false);
    return EStep::Done;
}

/// Delivers the frame just read behind those that its picture is built from. Without a key frame near enough
/// the scan stays where the search ended.
CTrickPlay::EStep CTrickPlay::RebuildForward(std::int64_t llSegment) {
    const std::int64_t llTarget = m_scanner.GetFramePos();
    m_scanner.SeekTo(llTarget);
    switch (FindKeyFrame(kMostFramesSlow)) {
        case EFrame::Found: return DeliverUpTo(llTarget);
        case EFrame::None: return EStep::Done;
        case EFrame::Failed: SeekTo(llSegment); break;
    }
    return EStep::Pause;
}

CTrickPlay::EStep CTrickPlay::SlowReverse() {
    const std::int64_t llBegin = m_scanner.GetPosition();
    if (!m_host.MayGoOn()) return EStep::Done;
    if (m_scanner.ReadFrameBackward() != EFrame::Found) return EStep::Pause;
    const std::int64_t llTarget = m_scanner.GetPosition();
    const EFrame keyFrame = IsKeyFrame() ? EFrame::Found : FindKeyFrame(kMostFramesSlow - 1);
    if (keyFrame == EFrame::None) return EStep::Done;
    const EStep step = keyFrame == EFrame::Found ? DeliverUpTo(llTarget) : EStep::Pause;
    m_scanner.SeekTo(keyFrame == EFrame::Found ? llTarget : llBegin);
    return step;
}

/// Goes back to the nearest key frame, passing at most so many frames, the key frame among them.
CTrickPlay::EFrame CTrickPlay::FindKeyFrame(int nMost) {
    for (int i = 0; i < nMost && m_host.MayGoOn(); ++i) {
        const EFrame frame = m_scanner.ReadFrameBackward();
        if (frame != EFrame::Found || IsKeyFrame()) return frame;
    }
    return EFrame::None;
}

/// Delivers the frames from here to the target, of which the target alone is to be shown.
CTrickPlay::EStep CTrickPlay::DeliverUpTo(std::int64_t llTarget) {
    for (bool bTarget = false; !bTarget && m_host.MayGoOn();) {
        if (m_scanner.ReadFrameForward() != EFrame::Found) return EStep::Pause;
        bTarget = m_scanner.GetFramePos() >= llTarget;
        Deliver(/*bNoVideo=*/!bTarget);
    }
    return EStep::Done;
}

bool CTrickPlay::IsKeyFrame() const {
    constexpr int kIntra = 0;
    const Bytes frame = m_scanner.GetFrame();
    return FrameCodingType(frame) == kIntra || (m_bMpegKeyFrames && BeginsWithIntraPicture(frame));
}

void CTrickPlay::Deliver(bool bNoVideo) {
    FRAME_INFO info{};
    info.llFilePos = m_scanner.GetFramePos();
    info.bSegmentMarker = 1;
    info.bNoVideo = bNoVideo;
    m_host.Deliver(m_scanner.GetFrame(), info);
}

}  // namespace kest

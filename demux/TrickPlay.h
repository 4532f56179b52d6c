#pragma once

#include <cstdint>

#include "demux/FrameInfo.h"
#include "demux/ParseSettings.h"
#include "demux/VideoFrameScanner.h"

namespace kest {

/// What trick play asks of its demuxer.
class ITrickPlayHost : public IScanSource {
public:
    /// Asked before each frame; waits while the demuxer is held. @return false: the step must end.
    virtual bool MayGoOn() = 0;
    /// Takes a frame, waiting for room without limit; one of a segment that is past is dropped.
    virtual void Deliver(Bytes frame, const FRAME_INFO& info) = 0;

protected:
    ~ITrickPlayHost() = default;
};

/// Plays the video of a program stream at rates other than 1.0, step by step, without times and without
/// audio. Fast modes deliver every n-th key frame, where each step counts anew: a frame whose first VOP is an
/// I-VOP or, with `bMpegKeyFrames`, one without a VOP whose first picture is an I picture. Slow modes deliver
/// every frame, those that only rebuild the decoder's state with `bNoVideo`.
///
/// It knows of no thread and no queue: a demuxer's thread calls `Step` again and again.
class CTrickPlay {
public:
    static constexpr int kNormalRate = 10;  // rate x 10 at which the demuxer's parser plays instead

    enum class EStep {
        Done,   // the next step may follow
        Pause,  // there is nothing to be had, for now or at this rate
    };

    /// @param host       outlives it.
    /// @param nMaxFrame  see CVideoFrameScanner.
    CTrickPlay(ITrickPlayHost& host, std::uint32_t nMaxFrame) : m_host(host), m_scanner(host, nMaxFrame) {}

    /// Extensions, for the steps that follow: `bMpegKeyFrames`.
    void SetSettings(const ParseSettings& settings) { m_bMpegKeyFrames = settings.bMpegKeyFrames; }
    /// A new segment begins at this file offset; outside the source: at its nearer end.
    void SeekTo(std::int64_t llPosition);
    /// File offset that the next step goes on from.
    std::int64_t GetPosition() const { return m_scanner.GetPosition(); }

    /// Delivers what comes next.
    /// @param nRate  the rate times 10: 1 to 9 slow forward, above 10 fast forward, -1 to -9 slow reverse,
    ///               -10 and below fast reverse, every (|nRate| / 10)-th key frame; else nothing.
    EStep Step(int nRate);

private:
    using EFrame = CVideoFrameScanner::EFrame;

    EStep FastForward(int nEvery);
    EStep FastReverse(int nEvery);
    EStep SlowForward();
    EStep SlowReverse();
    EStep RebuildForward(std::int64_t llSegment);
    EStep DeliverUpTo(std::int64_t llTarget);
    EFrame FindKeyFrame(int nMost);
    bool IsKeyFrame() const;
    void Deliver(bool bNoVideo);

    ITrickPlayHost& m_host;
    CVideoFrameScanner m_scanner;
    bool m_bMpegKeyFrames = false;  // see SetSettings
    bool m_bNewSegment = false;     // no frame has been read since the segment began
};

}  // namespace kest

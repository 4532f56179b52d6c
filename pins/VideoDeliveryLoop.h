#pragma once

#include "demux/ElementaryStreamClock.h"
#include "pins/DeliveryLoop.h"

namespace kest {

class CKestDemux2VideoOutputPin;

/// The delivery loop of the video pin: stamps by PTS, shares the audio pin's time base, and in program
/// streams keeps within bounds of the audio.
class CVideoDeliveryLoop final : public CDeliveryLoop {
public:
    explicit CVideoDeliveryLoop(CKestDemux2VideoOutputPin& pin);

private:
    const DeliveryRules& SelectRules(const WorkingMode& mode) const override;
    void BeginRun() override {}
    std::int64_t GetStamp(const FRAME_INFO& info) const override { return info.llPts; }
    void PassEnd() override;
    EStep DeliverFree(Frame& frame) override;
    EStep HandleFlags(Frame& frame) override;
    EStep ProcessFrame(Frame& frame) override;
    EStep RestartTiming(Frame& frame) override;
    void AfterStamping(Frame& frame) override;
    void OnBrokenStamp() override;
    void CheckDrift(Frame& frame) override;
    bool CountsBeforeDelivery() const override { return !Is(ETimeline::ElementaryStream); }
    bool IsWithheld() const override;
    void OnEnd() override;

    bool GetTimeBase(const Frame& frame);
    void CheckFirstFrame(Frame& frame);
    void SkipAhead(Frame& frame);
    EStep DeliverSegmentMarker(Frame& frame);
    EStep ProcessElementary(Frame& frame);
    void TraceElementary();

    CKestDemux2VideoOutputPin& m_videoPin;
    CElementaryStreamClock m_clock;        // elementary-stream variant
    std::int32_t m_nWrongStamps = 0;       // corrections in a row against the audio (program-stream variant)
    REFERENCE_TIME m_rtPreviousStart = 0;  // of the sample before (elementary-stream variant, trace only)
};

}  // namespace kest

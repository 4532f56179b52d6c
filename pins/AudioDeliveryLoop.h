#pragma once

#include "pins/DeliveryLoop.h"

namespace kest {

/// The delivery loop of the audio pin: stamps by DTS. In program streams it sets the time base for both pins.
class CAudioDeliveryLoop final : public CDeliveryLoop {
public:
    explicit CAudioDeliveryLoop(CDemuxOutputPin& pin);

private:
    const DeliveryRules& SelectRules(const WorkingMode& mode) const override;
    void BeginRun() override { GetTiming().nAccessCount = 0; }
    std::int64_t GetStamp(const FRAME_INFO& info) const override { return info.llDts; }
    void OnFrameDropped() override;
    void OnNothingRead() override;
    void PassEnd() override { m_pin.DeliverEndOfStream(); }
    EStep DeliverFree(Frame& frame) override;
    EStep HandleFlags(Frame& frame) override;
    EStep RestartTiming(Frame& frame) override;
    void OnNormalTiming(Frame& frame) override;
    void AfterStamping(Frame& frame) override;
    void OnBrokenStamp() override;
    bool CountsBeforeDelivery() const override { return false; }
    void OnEnd() override;
    void TraceStep(const char* pszText) override;

    REFERENCE_TIME ChooseTimeBase(REFERENCE_TIME rtFrame);
    REFERENCE_TIME ClockTimeBase(REFERENCE_TIME rtFrame);
    EStep DeliverSegmentMarker(Frame& frame);

    bool m_bAdopted = false;  // the video pin's time base has been taken (clock-following variant)
};

}  // namespace kest

#pragma once

#include "graph/BaseOutputPin.h"
#include "graph/PinFlowControl.h"
#include "pins/AvTiming.h"
#include "pins/DeliveryGate.h"
#include "pins/DemuxFilterSite.h"
#include "pins/FrameQueue.h"
#include "pins/PinSeeking.h"
#include "plumbing/Count.h"

namespace kest {

/// What a delivery thread works with: the parts of its pin, and what the pins share. All outlive the thread.
struct DeliveryContext {
    EPin pin;                            // which pin this is
    CBaseOutputPin& output;              // delivers downstream
    IDemuxFilterSite& site;              // the filter
    CAvTiming& timing;                   // of both pins
    CFrameQueue& frames;                 // where the frames come from
    CDeliveryGate& gate;                 // keeps deliveries and flushes apart
    CPinFlowControl& flowControl;        // keeps deliveries and reconnections apart
    CEvent& evActive;                    // auto-reset; set when the pin's allocator has been committed
    CCount& nDelivered;                  // samples that have gone downstream
    CPinSeeking* pSeeking = nullptr;     // follows the video; null for the audio pin
    CDeliveryGate* pPeerGate = nullptr;  // of the other pin

    bool IsVideo() const { return pin == EPin::Video; }
};

}  // namespace kest

#include "filter/SingleStep.h"

#include "platform/DebugText.h"

namespace kest {

void CSingleStep::Enable(bool bEnable) {
    Trace(bEnable ? "===>put_EnableSingleStep true\n" : "===>put_EnableSingleStep false\n");
    m_bSingleStep = bEnable;
    m_evSingleStep.Set();
}

void CSingleStep::DoSingleStep(const std::function<bool()>& isOver) {
    constexpr std::uint32_t kPollMs = 50;
    Trace("===>Do DoSingleStep \n");
    if (!m_bSingleStep) return;
    while (!m_evSingleStep.Wait(kPollMs)) {
        if (isOver()) return;
    }
    Trace("===>Pass Waiting for m_evSingleStep\n");
}

}  // namespace kest

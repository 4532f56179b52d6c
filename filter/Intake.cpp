#include "filter/Intake.h"

#include <cinttypes>

#include "platform/DebugText.h"

namespace kest {

bool CIntake::Take(std::span<const std::uint8_t> data) {
    const CPushGate::CInside inside(m_gate);
    if (m_gate.IsHeld()) return false;
    m_llBytesReceived += data.size();
    m_dump.WriteDump(data);
    if (const auto posted = m_publisher.TakePosted()) m_sender.AdoptSettings(&*posted);
    Forward(data);
    if (!m_sender.GetSettingsPtr()->Get(&SEND_SETTINGS::bDisableDemux)) m_path.Feed(data);
    return !m_gate.IsHeld();
}

void CIntake::Forward(std::span<const std::uint8_t> data) {
    if (m_sender.Push(data.data(), static_cast<std::int32_t>(data.size())) == 0) return;
    const std::uint64_t llBytesSent = m_sender.GetSettingsPtr()->Get(&SEND_SETTINGS::llBytesSent);
    m_publisher.PublishBytesSent(llBytesSent);
    Trace("Sending Bytes =%" PRIu64 "\n", llBytesSent);
}

// The intake's own gate is held first and released last: what the other two drop is answered as dropped.
CIntake::CHold::CHold(CIntake& intake) : m_intake(intake) {
    m_intake.m_gate.BeginHold();
    m_intake.m_sender.HoldPush();
    m_intake.m_path.HoldFeed();
    m_intake.m_gate.FinishHold([] {});  // the other two have ended what it may wait for
}

CIntake::CHold::~CHold() {
    m_intake.m_path.ReleaseFeed();
    m_intake.m_sender.ReleasePush();
    m_intake.m_gate.Release();
}

}  // namespace kest

#include "filter/StatusPublisher.h"

#include <cstddef>

namespace kest {
namespace {

constexpr std::int32_t kSize = sizeof(SHARED_STATUS);

}  // namespace

bool CStatusPublisher::Open() {
    return m_StatusFile.IsOpen() ||
           m_StatusFile.Open(MEMFILE_CREATE, nullptr, kSharedStatusName, nullptr, kSize, 0) >= 1;
}

SHARED_STATUS CStatusPublisher::Update(std::uint32_t nWorkingMode, const SEND_SETTINGS& settings) {
    CAutoLock lock(m_cs);
    m_SharedStatus.nWorkingMode = nWorkingMode;
    m_SharedStatus.settings = settings;
    return m_SharedStatus;
}

void CStatusPublisher::Publish(std::uint32_t nWorkingMode, const SEND_SETTINGS& settings) {
    const SHARED_STATUS status = Update(nWorkingMode, settings);
    if (IsPublished()) m_StatusFile.Write(&status, kSize);
}

void CStatusPublisher::Post(std::uint32_t nWorkingMode, const SEND_SETTINGS& settings) {
    const SHARED_STATUS status = Update(nWorkingMode, settings);
    if (IsPublished()) m_StatusFile.WriteSignal(&status, kSize);
}

void CStatusPublisher::PublishBytesSent(std::uint64_t llBytesSent) {
    constexpr std::uint32_t kOffset =
        offsetof(SHARED_STATUS, settings) + offsetof(SEND_SETTINGS, llBytesSent);
    m_StatusFile.WriteAt(kOffset, &llBytesSent, sizeof llBytesSent);
}

std::optional<SEND_SETTINGS> CStatusPublisher::TakePosted() {
    SHARED_STATUS status;
    if (!IsPublished() || !m_StatusFile.WaitRead(&status, kSize)) return std::nullopt;
    return status.settings;
}

SHARED_STATUS CStatusPublisher::Get() const {
    CAutoLock lock(m_cs);
    return m_SharedStatus;
}

bool CStatusPublisher::TakeRemote(SHARED_STATUS& status) {
    if (m_StatusReader.Open(MEMFILE_OPEN, nullptr, kSharedStatusName, nullptr, kSize, 0) < 1) return false;
    m_StatusReader.WaitRead(&status, kSize);
    return true;
}

}  // namespace kest

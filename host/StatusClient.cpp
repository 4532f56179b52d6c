#include "host/StatusClient.h"

#include <chrono>

#include "platform/Time.h"

namespace kest {
namespace {

constexpr std::int32_t kSize = sizeof(SHARED_STATUS);
constexpr std::uint32_t kNoMode = 6;  // of SHARED_STATUS::nWorkingMode

/// Asks until it is true. @return false when that takes longer.
template <class Test>
bool WaitFor(Test test, std::uint32_t nTimeoutMs) {
    constexpr std::uint32_t kPauseMs = 2;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeoutMs);
    while (!test()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        SleepMs(kPauseMs);
    }
    return true;
}

}  // namespace

bool CStatusClient::Open() {
    return m_file.Open(MEMFILE_OPEN, nullptr, kSharedStatusName, nullptr, kSize, 0) == 1;
}

std::optional<SHARED_STATUS> CStatusClient::Read() const {
    SHARED_STATUS status;
    if (m_file.Read(&status, kSize) != 1) return std::nullopt;
    if (status == SHARED_STATUS{}) {
        status.nWorkingMode = kNoMode;
        status.settings = SEND_SETTINGS{};
    }
    return status;
}

bool CStatusClient::Post(const SHARED_STATUS& status, std::uint32_t nTimeoutMs) {
    return WaitFor([&] { return m_file.WriteSignal(&status, kSize) == 1; }, nTimeoutMs);
}

bool CStatusClient::WaitUntilTaken(std::uint32_t nTimeoutMs) const {
    return WaitFor([this] { return !m_file.IsPosted(); }, nTimeoutMs);
}

void CStatusClient::TakeBack() {
    SHARED_STATUS status;
    m_file.WaitRead(&status, kSize);
}

}  // namespace kest

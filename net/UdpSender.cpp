#include "net/UdpSender.h"

#include <algorithm>
#include <array>
#include <bit>
#include <new>

#include "platform/DebugText.h"
#include "platform/Termination.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr std::uint32_t kStopMs = 1000;       // time to end before force
constexpr std::uint32_t kTraceEachMs = 1000;  // of failures to send
constexpr std::uint32_t kLoopback = std::bit_cast<std::uint32_t>(std::array<std::uint8_t, 4>{127, 0, 0, 1});

}  // namespace

CUdpSender::~CUdpSender() {
    const CTerminationHold hold;
    HoldPush();
    if (m_pRing) {
        m_pRing->CloseReader(m_nReader.exchange(-1));
        m_pRing->CloseWriter();
    }
    Stop();
    WaitForThread(kStopMs);
    CloseThread();
    Close();
}

int CUdpSender::Open() {
    auto Fail = [](int nValue, int nResult) {
        SetLastErrorValue(nValue);
        return nResult;
    };
    if (m_bOpen) return Fail(UDP_E_ALREADY_OPEN, UDP_E_ALREADY_OPEN);
    if (!m_bSockets && !StartSockets()) return Fail(UDP_E_WSASTARTUP, UDP_E_WSASTARTUP);
    m_bSockets = m_bOpen = true;
    {
        CAutoLock lock(m_cs);
        if (const int nError = m_socket.Open()) return Fail(UDP_E_SOCKET, nError);
    }
    UpdateAddresses();
    if (m_pRing) return 0;
    try {
        m_pRing = std::make_unique<CRingBuffer>(kRingSize);
    } catch (const std::bad_alloc&) {
        return -1;
    }
    m_pRing->OpenWriter(kWriteSize);
    m_nReader = m_pRing->OpenReader(kWriteSize);
    StartThread();
    if (IsRunning()) return 0;
    m_pRing.reset();  // nobody would read it
    return -1;
}

int CUdpSender::Close() {
    CAutoLock lock(m_cs);
    m_socket.Close();
    m_bOpen = false;
    if (m_bSockets) StopSockets();
    m_bSockets = false;
    return 0;
}

// ---------------- the side that pushes

int CUdpSender::Push(const void* pData, std::int32_t nLength) {
    const CPushGate::CInside inside(m_pushGate);
    const SEND_SETTINGS settings = m_settings.Get();
    if (m_pushGate.IsHeld() || (!settings.bSending && !settings.bLocalView) || !m_pRing || nLength < 0)
        return 0;
    m_settings.Add(&SEND_SETTINGS::llBytesSent, static_cast<std::uint64_t>(nLength));
    std::span rest(static_cast<const std::uint8_t*>(pData), static_cast<std::size_t>(nLength));
    while (!rest.empty()) {
        const auto part = rest.first(std::min<std::size_t>(rest.size(), kWriteSize));
        if (m_pushGate.IsHeld() || m_pRing->WriteWait(part) != static_cast<int>(part.size())) return 0;
        m_llQueued += part.size();
        rest = rest.subspan(part.size());
    }
    return nLength;
}

void CUdpSender::HoldPush() {
    m_pushGate.Hold([this] {
        if (m_pRing) m_pRing->WakeWriter();
    });
}

// ---------------- settings

void CUdpSender::UpdateAddresses() {
    CAutoLock lock(m_cs);
    const SEND_SETTINGS settings = m_settings.Get();
    m_destination = {settings.dwSendAddr, static_cast<std::uint16_t>(settings.nSendPort)};
    m_local = {kLoopback, static_cast<std::uint16_t>(settings.nLocalPort)};
}

void CUdpSender::AdoptSettings(const SEND_SETTINGS* pSettings) {
    SEND_SETTINGS settings = *pSettings;  // of another process: flags are 0 or 1 here
    for (std::uint8_t* pbFlag : {&settings.bLocalView, &settings.bDisableDemux, &settings.bSending}) {
        *pbFlag = *pbFlag != 0;
    }
    CAutoLock lock(m_cs);
    SetSettings(&settings);
    UpdateAddresses();
}

// ---------------- the side that sends

std::int32_t CUdpSender::ThreadProc() {
    auto MayRun = [this] {
        m_evRun.Wait();
        return !m_evStop.IsSignalled();
    };
    if (!MayRun()) return -1;
    std::array<std::uint8_t, kMaxChunk> buffer;
    do {
        if (!SendNext(buffer)) {
            SleepMs(1);
            DebugText("Sleep 1\n");
        }
    } while (MayRun());
    return 1;
}

/// Sends the next chunk. Its size is settled when its first byte is there: a sender that has nothing to send
/// does not hold on to a size from before. @return false: the ring was closed meanwhile.
bool CUdpSender::SendNext(std::span<std::uint8_t> buffer) {
    if (m_pRing->WaitForData(m_nReader, 1, kInfinite) <= 0) return false;
    const auto chunk = buffer.first(GetChunkSize(m_settings.Get(&SEND_SETTINGS::nChunkKB)));
    m_nChunk = static_cast<std::uint32_t>(chunk.size());
    if (m_pRing->Read(m_nReader, chunk) != static_cast<int>(chunk.size())) return false;
    SendChunk(chunk);
    m_nChunk = 1;
    m_llSent += chunk.size();
    return true;
}

/// Bytes of a datagram for `SEND_SETTINGS::nChunkKB`.
std::uint32_t CUdpSender::GetChunkSize(std::int32_t nChunkKB) {
    constexpr std::int32_t kKiB = 1024;
    return static_cast<std::uint32_t>(std::clamp<std::int32_t>(nChunkKB, 1, kMaxChunk / kKiB) * kKiB);
}

void CUdpSender::SendChunk(std::span<const std::uint8_t> chunk) {
    CAutoLock lock(m_cs);
    const SEND_SETTINGS settings = m_settings.Get();
    if (settings.bSending) SendTo(chunk, m_destination);
    if (settings.bLocalView) SendTo(chunk, m_local);
}

void CUdpSender::SendTo(std::span<const std::uint8_t> chunk, const SocketAddress& address) {
    const int nError = m_socket.SendTo(chunk, address);
    const std::uint32_t nNow = TickCount();
    if (nError == 0 || (m_bSendFailed && nNow - m_nFailureTick < kTraceEachMs)) return;
    m_bSendFailed = true;
    m_nFailureTick = nNow;
    Trace("UDP sender: error %d, datagrams are left out\n", nError);
}

}  // namespace kest

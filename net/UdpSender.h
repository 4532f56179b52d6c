#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "net/SendSettings.h"
#include "platform/CritSec.h"
#include "platform/Socket.h"
#include "plumbing/PushGate.h"
#include "plumbing/RingBuffer.h"
#include "plumbing/WorkerThread.h"

namespace kest {

/// Results of CUdpSender::Open, also left as the thread's last-error value.
enum : int {
    UDP_E_ALREADY_OPEN = -5003,
    UDP_E_SOCKET = -5004,  // last-error value alone: Open returns the system's own error
    UDP_E_WSASTARTUP = -5006,
};

/// Forwards a byte stream as UDP datagrams to a destination and to a viewer on this machine (the local view,
/// 127.0.0.1).
///
/// `Push` copies the stream into a ring of 128 KiB; the sender's thread takes chunks of a fixed size out of
/// it and sends each as one datagram without a header: to the destination while `bSending` is on, then to the
/// local view while `bLocalView` is on. Both receive the same. The last bytes wait in the ring until a chunk
/// is complete. Both flags are off at first, and nothing is sent before one of them is switched on. A
/// datagram that cannot be sent is left out; a trace text says so, once a second at most.
///
/// Flags and chunk size take effect with the next chunk. Addresses and ports take effect with
/// `UpdateAddresses` or `AdoptSettings`: to set them field by field, set them, call
/// `UpdateAddresses`, and then switch the flags on.
///
/// Use: construct, `Open`, `Resume`, and then `Push` for all that comes in, from one thread at a time. All
/// but `Open`, `Close`, `StartThread` and destruction may be called from any thread meanwhile. At destruction
/// no thread may be in `Push` or on its way there: see `HoldPush`. Lock order: m_cs, that of the settings;
/// no lock is held in `Push`.
class CUdpSender : public CWorkerThread {
public:
    static constexpr std::uint32_t kRingSize = 131072;  // bytes between `Push` and the thread
    static constexpr std::uint32_t kWriteSize = 32768;  // largest write to the ring

    CUdpSender() = default;
    /// Ends the thread, after 1000 ms by force. What is still queued is not sent.
    virtual ~CUdpSender();

    /// Makes socket and ring and starts the thread, which holds until `Resume`.
    /// @return 0; UDP_E_ALREADY_OPEN, UDP_E_WSASTARTUP; the system's error when there is no socket, -1 when
    ///         there is no memory for the ring or no thread: it counts as open then, and `Push` takes nothing.
    int Open();
    /// Gives the socket back; ring and thread stay, and `Open` is possible again. @return 0.
    int Close();

    /// Queues bytes of the stream, waiting without limit for room: a slow network holds the caller back.
    /// @param nLength  bytes; counted in `llBytesSent` before they are queued.
    /// @return nLength; 0 when no flag is on, there is no ring, or `HoldPush` forbids it. A push that
    ///         `HoldPush` ended may have queued its beginning, kWriteSize bytes at a time; the rest is lost.
    int Push(const void* pData, std::int32_t nLength);
    /// Ends a `Push` that waits and lets none begin until `ReleasePush`, see CPushGate. What is queued stays and
    /// is sent in its order, before all that comes later.
    void HoldPush();
    void ReleasePush() { m_pushGate.Release(); }
    /// All that was queued has been sent, but for the bytes that wait for their datagram to be complete.
    bool IsDrained() const { return !IsRunning() || m_llQueued - m_llSent < m_nChunk; }

    /// Takes over addresses and ports from the settings (ports: the low 16 bits). Nothing is sent to the
    /// earlier ones after it has returned.
    void UpdateAddresses();
    void GetSettings(SEND_SETTINGS* pSettings) const { *pSettings = m_settings.Get(); }
    void SetSettings(const SEND_SETTINGS* pSettings) { m_settings.Set(*pSettings); }
    /// `SetSettings` and `UpdateAddresses` as one step: no chunk goes out with the flags of one record to the
    /// addresses of another.
    void AdoptSettings(const SEND_SETTINGS* pSettings);
    /// The settings themselves, for as long as the sender lives.
    CSendSettings* GetSettingsPtr() { return &m_settings; }

protected:
    std::int32_t ThreadProc() override;

private:
    static constexpr std::uint32_t kMaxChunk = 49152;  // largest datagram

    static std::uint32_t GetChunkSize(std::int32_t nChunkKB);
    bool SendNext(std::span<std::uint8_t> buffer);
    void SendChunk(std::span<const std::uint8_t> chunk);
    void SendTo(std::span<const std::uint8_t> chunk, const SocketAddress& address);

    std::unique_ptr<CRingBuffer> m_pRing;      // made by the first Open, there until the end
    std::atomic<std::uint64_t> m_llQueued{0};  // bytes written to the ring
    std::atomic<std::uint64_t> m_llSent{0};    // of these, bytes that the thread has sent
    std::atomic<std::uint32_t> m_nChunk{1};    // bytes of the chunk that the thread completes; 1: it has none
    std::atomic<int> m_nReader{-1};            // the thread's reader of the ring
    CSendSettings m_settings;                  // see GetSettingsPtr
    bool m_bOpen = false;                      // Open has passed its first step
    bool m_bSockets = false;                   // this object has started the sockets
    CCritSec m_cs;                             // guards the addresses and the socket
    SocketAddress m_destination;               // as of the last UpdateAddresses
    SocketAddress m_local;                     // the same, of the local view
    CDatagramSocket m_socket;                  // not bound, without options
    CPushGate m_pushGate;                      // see HoldPush
    bool m_bSendFailed = false;                // a trace text has been written; used by the thread alone
    std::uint32_t m_nFailureTick = 0;          // when it was written, in ticks
};

}  // namespace kest

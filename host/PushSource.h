#pragma once

#include <chrono>

#include "graph/BaseOutputPin.h"
#include "host/InputReader.h"
#include "host/ReadablePin.h"
#include "host/SourceFilter.h"
#include "platform/Event.h"
#include "platform/Thread.h"

namespace kest {

/// A source that delivers its bytes downstream, in samples without times, from its beginning to the end of
/// the stream. What can be read at any position is offered to be read too (CReadablePin); a pipe only delivers.
///
/// It delivers while paused and running, on a thread of its own. A stop ends that thread and every wait of it
/// but one downstream: the graph has stopped the filters there first. Who starts it again gets the bytes from
/// the beginning, those of a pipe from where they were left.
class CPushSource final : public CSourceFilter {
public:
    /// Bytes of a sample; the last one, and those of a pipe, may have less.
    static constexpr LONG kSampleSize = 65536;

    /// @param pReader         where the bytes come from.
    /// @param dBytesPerSecond the rate of the deliveries; 0: as fast as they are taken. Time that the
    ///                        downstream filter holds the samples back is made up for, up to a second.
    /// @param evNotice        set when the deliveries have ended; must outlive the source.
    CPushSource(CComPtr<CInputReader> pReader, double dBytesPerSecond, CEvent& evNotice);

    CBasePin* GetPin(int n) override { return n == 0 ? &m_output : nullptr; }
    /// Bytes that have been delivered since the start.
    LONGLONG GetPosition() const override { return m_output.m_llDelivered; }
    /// All bytes and the end of the stream have been delivered, or somebody does not take them.
    bool HasEnded() const override { return m_output.m_bEnded; }
    HRESULT GetResult() const override { return m_output.m_hrResult; }

private:
    class COutput final : public CReadablePin<CBaseOutputPin> {
    public:
        COutput(CPushSource* pFilter, CComPtr<CInputReader> pReader, double dBytesPerSecond,
                CEvent& evNotice);
        ~COutput() override { Leave(); }

        HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
        HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) override;
        HRESULT Active() override;
        HRESULT Inactive() override;
        HRESULT STDMETHODCALLTYPE BeginFlush() override { return CReadablePin::BeginFlush(); }
        HRESULT STDMETHODCALLTYPE EndFlush() override { return CReadablePin::EndFlush(); }

        std::atomic<LONGLONG> m_llDelivered{0};  // bytes since the start
        std::atomic<bool> m_bEnded{false};       // see HasEnded
        std::atomic<HRESULT> m_hrResult{S_OK};   // why a delivery failed

    private:
        using Clock = std::chrono::steady_clock;

        void Leave();
        HRESULT DeliverAll();
        HRESULT FillSample(IMediaSample& sample, LONG& nFilled);
        void Pace(Clock::time_point& due, LONG nBytes);

        const CComPtr<CInputReader> m_pInput;
        const double m_dBytesPerSecond;  // see the constructor
        CEvent& m_evNotice;
        CEvent m_evLeave;  // the thread is to end
        CThread m_thread;  // last: it uses the others
    };

    COutput m_output;
};

}  // namespace kest

#pragma once

#include <exception>
#include <mutex>

#include "graph/BaseFilter.h"
#include "graph/BaseInputPin.h"
#include "host/Pacer.h"

namespace kest {

/// Receives what a sink receives. The calls of one sink come one at a time, though from several threads: a
/// flush comes from the thread that flushes. A call that throws ends the stream: see CSink.
class ISinkHandler {
public:
    virtual void OnSample(IMediaSample& sample) = 0;
    /// @param rtStart, rtStop  bounds of the segment, 100 ns.
    virtual void OnNewSegment(REFERENCE_TIME /*rtStart*/, REFERENCE_TIME /*rtStop*/, double /*dRate*/) {}
    virtual void OnBeginFlush() {}
    virtual void OnEndFlush() {}
    virtual void OnEndOfStream() {}

protected:
    ~ISinkHandler() = default;
};

/// The end of a stream in a graph: a filter with one input pin, "Input", that takes any type and passes
/// everything to a handler, as a renderer would. While paused it holds the sample that has come until it
/// runs; a flush or a stop drops that sample. Between the beginning and the end of a flush, and while
/// stopped, nothing is taken.
///
/// What the handler throws is kept for `RethrowError`, and the sink takes nothing more. Other exceptions
/// become result codes, see Guard.
///
/// Locking: the handler is called under a lock of the pin's own, which is never held together with the object
/// lock. The waits (for the run, for the other stream) are on events, without a lock.
class CSink final : public CBaseFilter {
public:
    /// @param stream    which stream it takes.
    /// @param handler   must outlive the sink, as must all that follows.
    /// @param pacer     lets this stream wait for the other.
    /// @param evNotice  set when the stream has ended or the handler has thrown.
    CSink(EStream stream, ISinkHandler& handler, CPacer& pacer, CEvent& evNotice);

    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int n) override { return n == 0 ? &m_input : nullptr; }
    HRESULT STDMETHODCALLTYPE Pause() override;

    /// The end of the stream has come, and no sample since. A flush does not undo it: the demultiplexer
    /// flushes both streams when one of them begins anew, though the other may have ended for good.
    bool HasEnded() const { return m_input.m_bEnded; }
    bool HasFailed() const { return m_input.m_bFailed; }
    /// Counts the handler's calls, at their beginning and at their end: odd while it is in one.
    std::uint32_t GetActivity() const { return m_input.m_nActivity; }
    /// Throws what the handler threw, if it did.
    void RethrowError();

private:
    class CInput final : public CBaseInputPin {
    public:
        CInput(CSink* pFilter, EStream stream, ISinkHandler& handler, CPacer& pacer, CEvent& evNotice);

        HRESULT CheckMediaType(const CMediaType& type) override;
        HRESULT Active() override;
        HRESULT Run(REFERENCE_TIME tStart) override;
        HRESULT Inactive() override;
        HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
        HRESULT STDMETHODCALLTYPE EndOfStream() override;
        HRESULT STDMETHODCALLTYPE BeginFlush() override;
        HRESULT STDMETHODCALLTYPE EndFlush() override;
        HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop,
                                             double dRate) override;

        HRESULT Take(IMediaSample& sample);
        bool AwaitTurn(IMediaSample& sample);
        HRESULT GetDropResult() const;
        template <class Call>
        HRESULT CallHandler(Call call);

        const EStream m_stream;
        ISinkHandler& m_handler;
        CPacer& m_pacer;
        CEvent& m_evNotice;
        CEvent m_evRun;                      // the graph runs
        CEvent m_evLeave{true, true};        // stopped or flushing: a sample that waits is dropped
        std::atomic<bool> m_bActive{false};  // between Active and Inactive; written under the object lock
        std::atomic<bool> m_bEnded{false};   // the end of the stream has come
        std::atomic<bool> m_bFailed{false};  // the handler has thrown
        std::atomic<std::uint32_t> m_nActivity{0};  // see GetActivity
        std::mutex m_handlerMutex;                  // one call of the handler at a time; guards m_error
        std::exception_ptr m_error;                 // what it threw first
    };

    CCritSec m_csPins;  // the object lock
    CInput m_input;
};

}  // namespace kest

#include "host/Sink.h"

#include "graph/Guard.h"

namespace kest {
namespace {

constexpr CLSID kSinkClass = {0x61C7B2F4, 0x0D39, 0x4E85, {0xA4, 0x1B, 0x92, 0x6D, 0x50, 0xE8, 0x3C, 0x7A}};

}  // namespace

CSink::CSink(EStream stream, ISinkHandler& handler, CPacer& pacer, CEvent& evNotice)
    : CBaseFilter(nullptr, nullptr, &m_csPins, kSinkClass), m_input(this, stream, handler, pacer, evNotice) {}

HRESULT CSink::Pause() {
    return Guard([this] {
        CAutoLock lock(m_csPins);
        m_input.m_evRun.Reset();
        return CBaseFilter::Pause();
    });
}

void CSink::RethrowError() {
    std::lock_guard lock(m_input.m_handlerMutex);
    if (m_input.m_error) std::rethrow_exception(m_input.m_error);
}

// ---------------- states

CSink::CInput::CInput(CSink* pFilter, EStream stream, ISinkHandler& handler, CPacer& pacer, CEvent& evNotice)
    : CBaseInputPin(pFilter, &pFilter->m_csPins, nullptr, L"Input"),
      m_stream(stream),
      m_handler(handler),
      m_pacer(pacer),
      m_evNotice(evNotice) {}

HRESULT CSink::CInput::CheckMediaType(const CMediaType&) { return S_OK; }

HRESULT CSink::CInput::Active() {
    m_bActive = true;
    m_bEnded = false;
    m_pacer.Begin(m_stream);
    m_evLeave.Reset();
    return CBaseInputPin::Active();
}

HRESULT CSink::CInput::Run(REFERENCE_TIME) {
    m_evRun.Set();
    return S_OK;
}

HRESULT CSink::CInput::Inactive() {
    m_bActive = false;
    m_evLeave.Set();
    m_pacer.End(m_stream);
    return CBaseInputPin::Inactive();
}

// ---------------- what comes in

/// Calls the handler, with its lock held by the caller, and keeps what it throws.
template <class Call>
HRESULT CSink::CInput::CallHandler(Call call) {
    if (m_bFailed) return E_FAIL;
    ++m_nActivity;
    try {
        call();
    } catch (const std::exception&) {
        m_error = std::current_exception();
        m_bFailed = true;
        m_evNotice.Set();
    }
    ++m_nActivity;
    return m_bFailed ? E_FAIL : S_OK;
}

HRESULT CSink::CInput::Receive(IMediaSample* pSample) {
    return Guard([&] {
        const HRESULT hr = CBaseInputPin::Receive(pSample);
        return hr == S_OK ? Take(*pSample) : hr;
    });
}

HRESULT CSink::CInput::Take(IMediaSample& sample) {
    if (!AwaitTurn(sample)) return GetDropResult();
    std::lock_guard lock(m_handlerMutex);
    if (m_evLeave.IsSignalled()) return GetDropResult();  // the flush or stop came before the lock
    m_bEnded = false;
    return CallHandler([&] { m_handler.OnSample(sample); });
}

/// Waits until the graph runs and the other stream has caught up. @return false: the sample is to be dropped.
bool CSink::CInput::AwaitTurn(IMediaSample& sample) {
    CEvent* const apEvents[] = {&m_evLeave, &m_evRun};
    if (CEvent::WaitAny(apEvents) == 0) return false;
    REFERENCE_TIME rtStart, rtStop;
    if (SUCCEEDED(sample.GetTime(&rtStart, &rtStop))) m_pacer.Pace(m_stream, rtStart, m_evLeave);
    return true;
}

HRESULT CSink::CInput::GetDropResult() const { return m_bActive ? S_FALSE : VFW_E_WRONG_STATE; }

/// Taken during a flush too: that may come from the other stream's thread, and the end comes only once.
HRESULT CSink::CInput::EndOfStream() {
    return Guard([this] {
        if (const HRESULT hr = CheckStreaming(); FAILED(hr)) return hr;
        std::lock_guard lock(m_handlerMutex);
        const HRESULT hr = CallHandler([this] { m_handler.OnEndOfStream(); });
        m_pacer.End(m_stream);
        m_bEnded = true;
        m_evNotice.Set();
        return hr;
    });
}

HRESULT CSink::CInput::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
    return Guard([&] {
        CBaseInputPin::NewSegment(tStart, tStop, dRate);
        std::lock_guard lock(m_handlerMutex);
        return CallHandler([&] { m_handler.OnNewSegment(tStart, tStop, dRate); });
    });
}

HRESULT CSink::CInput::BeginFlush() {
    return Guard([this] {
        {
            CAutoLock lock(*m_pLock);
            CBaseInputPin::BeginFlush();
            m_evLeave.Set();
        }
        std::lock_guard lock(m_handlerMutex);
        return CallHandler([this] { m_handler.OnBeginFlush(); });
    });
}

HRESULT CSink::CInput::EndFlush() {
    return Guard([this] {
        HRESULT hr = S_OK;
        {
            std::lock_guard lock(m_handlerMutex);
            hr = CallHandler([this] { m_handler.OnEndFlush(); });
        }
        CAutoLock lock(*m_pLock);
        CBaseInputPin::EndFlush();
        if (!m_bActive) return hr;
        if (!m_bEnded) m_pacer.Begin(m_stream);
        m_evLeave.Reset();
        return hr;
    });
}

}  // namespace kest

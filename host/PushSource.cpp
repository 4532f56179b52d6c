#include "host/PushSource.h"

#include <algorithm>

#include "graph/Guard.h"

namespace kest {
namespace {

constexpr LONG kBuffers = 2;  // one is filled while the other is on its way

}  // namespace

CPushSource::CPushSource(CComPtr<CInputReader> pReader, double dBytesPerSecond, CEvent& evNotice)
    : m_output(this, std::move(pReader), dBytesPerSecond, evNotice) {}

CPushSource::COutput::COutput(CPushSource* pFilter, CComPtr<CInputReader> pReader, double dBytesPerSecond,
                              CEvent& evNotice)
    : CReadablePin(CComPtr<IAsyncReader>(pReader.Get()), pFilter, &pFilter->m_csPins, nullptr, L"Output"),
      m_pInput(std::move(pReader)),
      m_dBytesPerSecond(dBytesPerSecond),
      m_evNotice(evNotice) {}

// ---------------- connection and states

HRESULT CPushSource::COutput::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IAsyncReader && !m_pInput->IsSeekable()) {
        return CBaseOutputPin::NonDelegatingQueryInterface(riid, ppv);
    }
    return CReadablePin::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CPushSource::COutput::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) {
    props.cBuffers = std::max(props.cBuffers, kBuffers);
    props.cbBuffer = kSampleSize;
    ALLOCATOR_PROPERTIES actual{};
    return pAlloc->SetProperties(&props, &actual);
}

HRESULT CPushSource::COutput::Active() {
    if (const HRESULT hr = CBaseOutputPin::Active(); FAILED(hr)) return hr;
    m_evLeave.Reset();
    m_llDelivered = 0;
    m_bEnded = false;
    m_hrResult = S_OK;
    m_pInput->Rewind();
    const bool bStarted = m_thread.Start([this] {
        m_hrResult = Guard([this] { return DeliverAll(); });
        m_bEnded = true;
        m_evNotice.Set();
        return 0;
    });
    return bStarted ? S_OK : E_OUTOFMEMORY;
}

HRESULT CPushSource::COutput::Inactive() {
    m_evLeave.Set();
    const HRESULT hr = CBaseOutputPin::Inactive();  // ends the wait for a buffer
    Leave();
    return hr;
}

void CPushSource::COutput::Leave() {
    m_evLeave.Set();
    m_thread.Close();
}

// ---------------- the thread

/// @return S_OK, also when the source is stopped meanwhile; else what the downstream filter returned.
HRESULT CPushSource::COutput::DeliverAll() {
    for (Clock::time_point due = Clock::now();;) {
        CComPtr<IMediaSample> pSample;
        LONG nFilled = 0;
        HRESULT hr = GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0);
        if (SUCCEEDED(hr)) hr = FillSample(*pSample.Get(), nFilled);
        if (SUCCEEDED(hr) && nFilled > 0) hr = Deliver(pSample.Get());
        if (m_evLeave.IsSignalled()) return S_OK;
        if (SUCCEEDED(hr) && nFilled == 0) return DeliverEndOfStream();
        if (hr != S_OK) return FAILED(hr) ? hr : VFW_E_WRONG_STATE;
        m_llDelivered += nFilled;
        Pace(due, nFilled);
    }
}

HRESULT CPushSource::COutput::FillSample(IMediaSample& sample, LONG& nFilled) {
    BYTE* pBytes = nullptr;
    if (const HRESULT hr = sample.GetPointer(&pBytes); FAILED(hr)) return hr;
    const std::span dest(pBytes, static_cast<std::size_t>(sample.GetSize()));
    nFilled = static_cast<LONG>(m_pInput->ReadNext(dest, [this] { return m_evLeave.IsSignalled(); }));
    return sample.SetActualDataLength(nFilled);
}

/// Waits as long as the bytes last that were delivered.
/// @param due  when they were due; then when the next ones are.
void CPushSource::COutput::Pace(Clock::time_point& due, LONG nBytes) {
    using namespace std::chrono;
    if (m_dBytesPerSecond <= 0) return;
    constexpr double kLongest = 1e6;  // seconds; keeps the arithmetic in range
    const duration<double> lasts(std::min(nBytes / m_dBytesPerSecond, kLongest));
    due = std::max(due + duration_cast<Clock::duration>(lasts), Clock::now() - seconds(1));
    const auto left = ceil<milliseconds>(due - Clock::now()).count();
    if (left > 0) m_evLeave.Wait(static_cast<std::uint32_t>(std::min<std::int64_t>(left, kInfinite - 1)));
}

}  // namespace kest

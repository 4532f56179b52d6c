#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "Recorder.h"
#include "platform/ComPtr.h"

namespace kest {

/// A source filter that delivers a file, in samples without times, from its beginning to the end of the stream; its one
/// output pin can be read too (IAsyncReader). Filter and pin are one object, which lives longer than the graph and
/// counts no references.
///
/// It delivers while paused and running, on a thread of its own, as often as it is started. The graph stops it after
/// the filter behind it, which ends the waits of that thread.
class CPushSource final : public IBaseFilter, public IPin, public IAsyncReader {
public:
    explicit CPushSource(const std::wstring& wszFile) {
        std::ifstream file(std::filesystem::path(wszFile), std::ios::binary);
        m_bytes.assign(std::istreambuf_iterator(file), {});
        Require(!m_bytes.empty(), "the file cannot be read");
    }
    ~CPushSource() { Stop(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        *ppv = nullptr;
        if (riid == IID_IPin) *ppv = static_cast<IPin*>(this);
        if (riid == IID_IAsyncReader) *ppv = static_cast<IAsyncReader*>(this);
        if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
            riid == IID_IBaseFilter)
            *ppv = static_cast<IBaseFilter*>(this);
        return *ppv ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    // ---------------- IBaseFilter

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClass) override {
        *pClass = CLSID_NULL;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Stop() override {
        m_state = State_Stopped;
        if (m_pAllocator) m_pAllocator->Decommit();
        if (m_thread.joinable()) m_thread.join();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Pause() override {
        if (m_state.exchange(State_Paused) != State_Stopped || !m_pAllocator) return S_OK;
        m_pAllocator->Commit();
        m_thread = std::thread([this] { DeliverAll(); });
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME) override {
        if (m_state == State_Stopped) Pause();
        m_state = State_Running;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetState(DWORD, FILTER_STATE* pState) override {
        *pState = m_state;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** ppClock) override {
        *ppClock = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppPins) override {
        *ppPins = new CPinList(*this, 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR, IPin**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) override {
        *pInfo = {L"source", m_pGraph};
        if (m_pGraph) m_pGraph->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR) override {
        m_pGraph = pGraph;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }

    // ---------------- IPin: connects, and takes the allocator of the other side

    HRESULT STDMETHODCALLTYPE Connect(IPin* pInput, const AM_MEDIA_TYPE*) override {
        AM_MEDIA_TYPE type{};
        ConnectionMediaType(&type);
        CComPtr<IMemAllocator> pAllocator;
        CComPtr<IMemInputPin> pReceiver;
        ALLOCATOR_PROPERTIES wanted{kBuffers, kSampleSize, 1, 0}, actual{};
        HRESULT hr = pInput->QueryInterface(IID_PPV_ARGS(pReceiver.Put()));
        if (SUCCEEDED(hr)) hr = pInput->ReceiveConnection(this, &type);
        if (SUCCEEDED(hr)) hr = pReceiver->GetAllocator(pAllocator.Put());
        if (SUCCEEDED(hr)) hr = pAllocator->SetProperties(&wanted, &actual);
        if (SUCCEEDED(hr)) hr = pReceiver->NotifyAllocator(pAllocator.Get(), FALSE);
        if (FAILED(hr)) return hr;
        m_pConnected = pInput;
        m_pReceiver = pReceiver;
        m_pAllocator = pAllocator;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        m_pConnected = nullptr;
        m_pReceiver = nullptr;
        m_pAllocator = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** ppPin) override {
        *ppPin = CComPtr(m_pConnected).Detach();
        return m_pConnected ? S_OK : VFW_E_NOT_CONNECTED;
    }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pType) override {
        *pType = {};
        pType->majortype = MEDIATYPE_Stream;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) override {
        *pInfo = {this, PINDIR_OUTPUT, L"Output"};
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pDirection) override {
        *pDirection = PINDIR_OUTPUT;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }  // IAsyncReader's too
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override {
        return E_UNEXPECTED;
    }

    // ---------------- IAsyncReader: reads at once, alone

    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*,
                                               IMemAllocator**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG nLength, BYTE* pBytes) override {
        if (llPosition < 0 || llPosition > std::ssize(m_bytes)) return E_INVALIDARG;
        const LONGLONG nRead = std::min<LONGLONG>(nLength, std::ssize(m_bytes) - llPosition);
        std::copy_n(m_bytes.begin() + llPosition, nRead, pBytes);
        return nRead == nLength ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override {
        *pTotal = *pAvailable = std::ssize(m_bytes);
        return S_OK;
    }

private:
    static constexpr LONG kBuffers = 2, kSampleSize = 65536;  // bytes

    class CPinList final : public IEnumPins {
    public:
        CPinList(CPushSource& source, ULONG nNext) : m_source(source), m_nNext(nNext) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nReferences; }
        ULONG STDMETHODCALLTYPE Release() override {
            const ULONG nLeft = --m_nReferences;
            if (nLeft == 0) delete this;
            return nLeft;
        }
        HRESULT STDMETHODCALLTYPE Next(ULONG nCount, IPin** ppPins, ULONG* pnFetched) override {
            const ULONG nFetched = nCount > 0 && m_nNext == 0 ? 1 : 0;
            if (nFetched) *ppPins = &m_source;
            m_nNext += nFetched;
            if (pnFetched) *pnFetched = nFetched;
            return nFetched == nCount ? S_OK : S_FALSE;
        }
        HRESULT STDMETHODCALLTYPE Skip(ULONG nCount) override {
            m_nNext += nCount;
            return m_nNext <= 1 ? S_OK : S_FALSE;
        }
        HRESULT STDMETHODCALLTYPE Reset() override {
            m_nNext = 0;
            return S_OK;
        }
        HRESULT STDMETHODCALLTYPE Clone(IEnumPins** ppPins) override {
            *ppPins = new CPinList(m_source, m_nNext);
            return S_OK;
        }

    private:
        CPushSource& m_source;
        std::atomic<ULONG> m_nReferences{1};
        ULONG m_nNext;  // 0: the pin; then the end
    };

    void DeliverAll() {
        for (LONGLONG llPosition = 0; llPosition < std::ssize(m_bytes); llPosition += kSampleSize) {
            CComPtr<IMediaSample> pSample;
            BYTE* pBytes = nullptr;
            if (FAILED(m_pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0))) return;
            const auto nLength =
                static_cast<LONG>(std::min<LONGLONG>(kSampleSize, std::ssize(m_bytes) - llPosition));
            pSample->GetPointer(&pBytes);
            SyncRead(llPosition, nLength, pBytes);
            pSample->SetActualDataLength(nLength);
            if (m_pReceiver->Receive(pSample.Get()) != S_OK || m_state == State_Stopped) return;
        }
        m_pConnected->EndOfStream();
    }

    std::vector<BYTE> m_bytes;            // the file
    IFilterGraph* m_pGraph = nullptr;     // holds this filter
    CComPtr<IPin> m_pConnected;           // these three: of the other side, while connected
    CComPtr<IMemInputPin> m_pReceiver;    // takes the samples
    CComPtr<IMemAllocator> m_pAllocator;  // of the samples
    std::atomic<FILTER_STATE> m_state{State_Stopped};
    std::thread m_thread;  // delivers
};

}  // namespace kest

// Connections: how two pins agree on a type and an allocator, what they refuse, and what the filter does with
// them in its states.
#include <gtest/gtest.h>

#include "graph/PullPin.h"
#include "support/GraphPins.h"

namespace kest {
namespace {

const CMediaType kMpeg2(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
const CMediaType kMpeg1(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Payload);
const CMediaType kAudio(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG2_VIDEO);

class GraphConnection : public ::testing::Test {
protected:
    ~GraphConnection() override {
        m_pUp->Stop();
        m_pDown->Stop();
        Source().Disconnect();  // connected pins hold each other's filter
        Sink().Disconnect();
    }
    HRESULT Connect(const AM_MEDIA_TYPE* pType = nullptr) { return Source().Connect(&Sink(), pType); }
    CSourcePin& Source() { return m_pUp->m_source; }
    CSinkPin& Sink() { return m_pDown->m_sink; }
    void ExpectApart() {
        IPin* pOther = nullptr;
        EXPECT_EQ(VFW_E_NOT_CONNECTED, Source().ConnectedTo(&pOther));
        EXPECT_EQ(VFW_E_NOT_CONNECTED, Sink().ConnectedTo(&pOther));
        EXPECT_EQ(nullptr, Source().Allocator());
        EXPECT_EQ(nullptr, Sink().Allocator());
    }

    CComPtr<CPinFilter> m_pUp{new CPinFilter}, m_pDown{new CPinFilter};
};

TEST_F(GraphConnection, AgreesOnTypeAndAllocatorAndComesApart) {
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(&Sink(), Source().GetConnected());
    EXPECT_EQ(&Source(), Sink().GetConnected());
    CMediaType agreed;
    EXPECT_EQ(S_OK, Sink().ConnectionMediaType(&agreed));
    EXPECT_TRUE(agreed == kMpeg2);
    ASSERT_NE(nullptr, Source().Allocator());
    EXPECT_EQ(Source().Allocator(), Sink().Allocator()) << "the downstream pin's own is preferred";
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, Connect());

    EXPECT_EQ(S_OK, Source().Disconnect());
    EXPECT_EQ(S_OK, Sink().Disconnect());
    EXPECT_EQ(S_FALSE, Source().Disconnect());
    ExpectApart();
}

TEST_F(GraphConnection, WhatIsOfferedFirstIsTriedFirst) {
    Source().m_types = {kMpeg1, kMpeg2};
    Sink().m_types = {kAudio, kAudio, kMpeg2};  // the source refuses the first two
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(3U, m_pUp->m_log.size()) << "the sink's three types come first";
    Source().Disconnect();
    Sink().Disconnect();
    m_pUp->m_log.clear();
    Source().TryOwnTypesFirst();
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(2U, m_pUp->m_log.size()) << "the source's two types come first";
}

TEST_F(GraphConnection, FailuresHaveTheirCodesAndLeaveNothingBehind) {
    CMediaType full = kMpeg1, accepted = kMpeg2;
    full.SetFormatType(FORMAT_None);
    accepted.SetFormatType(FORMAT_None);
    struct {
        const char* name;
        const AM_MEDIA_TYPE* pType;
        HRESULT hrRefusal, hrBufferSize, hrExpected;
        GUID sinkAccepts;
    } const cases[] = {
        {"no type in common", nullptr, S_FALSE, S_OK, VFW_E_NO_ACCEPTABLE_TYPES, MEDIASUBTYPE_MPEG1Payload},
        {"partial type", &kAudio, S_FALSE, S_OK, VFW_E_NO_ACCEPTABLE_TYPES, MEDIASUBTYPE_MPEG2_VIDEO},
        {"full type", &full, S_FALSE, S_OK, VFW_E_TYPE_NOT_ACCEPTED, MEDIASUBTYPE_MPEG2_VIDEO},
        {"buffers, full type", &accepted, S_FALSE, E_FAIL, E_FAIL, MEDIASUBTYPE_MPEG2_VIDEO},
        {"buffers, any type", nullptr, S_FALSE, E_FAIL, E_FAIL, MEDIASUBTYPE_MPEG2_VIDEO},
    };
    for (const auto& c : cases) {
        Source().m_hrBufferSize = c.hrBufferSize;
        Sink().m_accepted = c.sinkAccepts;
        EXPECT_EQ(c.hrExpected, Connect(c.pType)) << c.name;
        ExpectApart();
    }
    for (const HRESULT hrRefusal : {S_FALSE, E_FAIL, E_INVALIDARG}) {
        Source().m_hrRefusal = hrRefusal;
        CMediaType audio = kAudio;
        audio.SetFormatType(FORMAT_None);
        EXPECT_EQ(VFW_E_TYPE_NOT_ACCEPTED, Connect(&audio));
        EXPECT_EQ(S_FALSE, Source().QueryAccept(&audio));
    }
    EXPECT_EQ(VFW_E_INVALID_DIRECTION, Source().Connect(&m_pDown->m_source, &accepted));
    ASSERT_EQ(S_OK, m_pDown->Pause());
    Source().m_hrBufferSize = S_OK;
    EXPECT_EQ(VFW_E_NOT_STOPPED, Connect(&accepted));
    ExpectApart();
}

TEST_F(GraphConnection, StatesLeadTheConnectedPinsAndTheAllocator) {
    ASSERT_EQ(S_OK, Connect());
    m_pUp->m_log.clear();
    CComPtr<IMediaSample> pSample;
    EXPECT_EQ(VFW_E_NOT_COMMITTED, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));

    ASSERT_EQ(S_OK, m_pUp->Run(50));
    ASSERT_EQ(S_OK, m_pDown->Pause());
    EXPECT_EQ(VFW_E_NOT_STOPPED, Source().Disconnect());
    ASSERT_EQ(S_OK, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));
    EXPECT_EQ(S_OK, Source().Deliver(pSample.Get()));
    pSample = nullptr;
    ASSERT_EQ(S_OK, m_pUp->Pause());
    ASSERT_EQ(S_OK, m_pUp->Stop());
    EXPECT_EQ(VFW_E_NOT_COMMITTED, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));
    ASSERT_EQ(S_OK, m_pUp->Stop()) << "the pins are not asked again";
    EXPECT_EQ((Log{"source active", "source runs", "source inactive"}), m_pUp->m_log);

    Source().m_hrActive = E_ABORT;
    EXPECT_EQ(E_ABORT, m_pUp->Run(0));
    EXPECT_TRUE(m_pUp->IsStopped());
}

TEST_F(GraphConnection, InputRefusesSamplesOutsideStreaming) {
    EXPECT_EQ(VFW_E_NOT_CONNECTED, Sink().CheckStreaming());
    EXPECT_EQ(VFW_E_NOT_CONNECTED, Source().DeliverEndOfStream());
    EXPECT_EQ(VFW_E_NO_ALLOCATOR, Sink().Inactive());
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(VFW_E_WRONG_STATE, Sink().CheckStreaming());
    ASSERT_EQ(S_OK, m_pUp->Pause());
    ASSERT_EQ(S_OK, m_pDown->Pause());
    Source().DeliverBeginFlush();
    EXPECT_EQ(S_FALSE, Sink().CheckStreaming());
    Source().DeliverEndFlush();

    CComPtr<IMediaSample> pSample;
    ASSERT_EQ(S_OK, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));
    CMediaType changed = kMpeg1;
    pSample->SetMediaType(&changed);
    EXPECT_EQ(VFW_E_INVALIDMEDIATYPE, Source().Deliver(pSample.Get()));
    EXPECT_EQ(1, Sink().m_nEnds);
    pSample->SetMediaType(nullptr);
    EXPECT_EQ(VFW_E_RUNTIME_ERROR, Source().Deliver(pSample.Get())) << "until the next stop or flush";
    Source().DeliverEndFlush();
    EXPECT_EQ(S_OK, Source().Deliver(pSample.Get()));
}

TEST_F(GraphConnection, FindsAndListsPinsAndTypes) {
    CComPtr<IPin> pPin;
    EXPECT_EQ(S_OK, m_pUp->FindPin(L"Input", pPin.Put()));
    EXPECT_EQ(&m_pUp->m_sink, pPin.Get());
    EXPECT_EQ(VFW_E_NOT_FOUND, m_pUp->FindPin(L"Out", pPin.Put()));
    EXPECT_EQ(E_POINTER, m_pUp->FindPin(L"Input", nullptr));

    CComPtr<IEnumPins> pPins, pClone;
    ASSERT_EQ(S_OK, m_pUp->EnumPins(pPins.Put()));
    IPin* apPins[3] = {};
    ULONG nPins = 0;
    EXPECT_EQ(E_INVALIDARG, pPins->Next(3, apPins, nullptr));
    EXPECT_EQ(S_OK, pPins->Skip(1));
    ASSERT_EQ(S_OK, pPins->Clone(pClone.Put()));
    EXPECT_EQ(S_FALSE, pPins->Next(3, apPins, &nPins));
    ASSERT_EQ(1U, nPins);
    EXPECT_EQ(&m_pUp->m_sink, apPins[0]);
    apPins[0]->Release();
    EXPECT_EQ(S_FALSE, pClone->Skip(2)) << "a clone goes on where the original stood";
    m_pUp->IncrementPinVersion();
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pPins->Next(1, apPins, nullptr));
    EXPECT_EQ(S_OK, pPins->Reset());
    EXPECT_EQ(S_OK, pPins->Skip(2));

    CComPtr<IEnumMediaTypes> pTypes;
    ASSERT_EQ(S_OK, Source().EnumMediaTypes(pTypes.Put()));
    AM_MEDIA_TYPE* pType = nullptr;
    ASSERT_EQ(S_OK, pTypes->Next(1, &pType, nullptr));
    EXPECT_TRUE(kMpeg2 == *pType);
    DeleteMediaType(pType);
    EXPECT_EQ(S_FALSE, pTypes->Next(1, &pType, nullptr));
}

/// Takes quality messages; counted by nobody.
struct CSink final : IQualityControl {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE Notify(IBaseFilter*, Quality q) override {
        rtLate = q.Late;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSink(IQualityControl*) override { return E_NOTIMPL; }
    REFERENCE_TIME rtLate = 0;
};

TEST_F(GraphConnection, QualityMessagesGoToTheSinkElseUpstream) {
    const Quality late{Flood, 900, 12345, 0};
    EXPECT_EQ(VFW_E_NOT_FOUND, Sink().PassNotify(late));
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(E_NOTIMPL, Sink().PassNotify(late)) << "the base of the source pin answers";
    CSink sink;
    Sink().SetSink(&sink);
    EXPECT_EQ(S_OK, Sink().PassNotify(late));
    EXPECT_EQ(12345, sink.rtLate);
}

/// A pin that lets its data be read, as far as a query goes.
struct CReadable final : CUnknown {
    struct CReader final : CImplements<CUnknown, IAsyncReader> {
        using CImplements::CImplements;
        HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*,
                                                   IMemAllocator**) override {
            return E_NOTIMPL;
        }
        HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override {
            return E_NOTIMPL;
        }
        HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG, LONG, BYTE*) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE Length(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
        HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }
    } reader{GetInnerUnknown()};
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IAsyncReader) return GetInterface<IAsyncReader>(&reader, ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
};

TEST_F(GraphConnection, PullPinHoldsOneReader) {
    CPullPin pull;
    EXPECT_EQ(E_NOINTERFACE, pull.Connect(static_cast<IPin*>(&Source()), nullptr, false));
    EXPECT_FALSE(pull.GetReader());
    auto* pReadable = new CReadable;
    CComPtr<IUnknown> pUpstream(pReadable->GetOwner());
    EXPECT_EQ(S_OK, pull.Connect(pUpstream.Get(), nullptr, false));
    EXPECT_EQ(&pReadable->reader, pull.GetReader().Get());
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, pull.Connect(pUpstream.Get(), nullptr, false));
    EXPECT_EQ(S_OK, pull.Disconnect());
    EXPECT_EQ(S_OK, pull.Connect(pUpstream.Get(), nullptr, false));
}

}  // namespace
}  // namespace kest

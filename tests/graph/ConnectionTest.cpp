// Connections: how two pins agree on a type and an allocator, how that fails, and what the states do with them.
#include <gtest/gtest.h>

#include "graph/PullPin.h"
#include "support/GraphPins.h"
#include "support/MemoryReader.h"

namespace kest {
namespace {

const CMediaType kMpeg2(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
const CMediaType kMpeg1(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Payload);
const CMediaType kAudio(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG2_VIDEO);

CMediaType Full(CMediaType type) {
    type.SetFormatType(FORMAT_None);
    return type;
}

class GraphConnection : public ::testing::Test, protected PinPair {};

TEST_F(GraphConnection, AgreesOnTypeAndAllocatorAndDisconnects) {
    Source().m_types = {kMpeg1, kMpeg2};
    Sink().m_types = {kAudio, kAudio};
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(4U, pUp->m_log.size()) << "the sink's types are tried first";
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
    EXPECT_TRUE(AreApart());
}

TEST_F(GraphConnection, FailuresHaveTheirCodesAndLeaveNothingBehind) {
    const CMediaType mpeg1 = Full(kMpeg1), mpeg2 = Full(kMpeg2), audio = Full(kAudio);
    struct {
        const char* name;
        const AM_MEDIA_TYPE* pType;
        HRESULT hrNotAcceptable, hrBufferSize, hrExpected;
        GUID sinkAccepts;
    } const cases[] = {
        {"no common type", nullptr, S_FALSE, S_OK, VFW_E_NO_ACCEPTABLE_TYPES, MEDIASUBTYPE_MPEG1Payload},
        {"partial type", &kAudio, S_FALSE, S_OK, VFW_E_NO_ACCEPTABLE_TYPES, MEDIASUBTYPE_MPEG2_VIDEO},
        {"sink: full type", &mpeg1, S_FALSE, S_OK, VFW_E_TYPE_NOT_ACCEPTED, MEDIASUBTYPE_MPEG2_VIDEO},
        {"source: S_FALSE", &audio, S_FALSE, S_OK, VFW_E_TYPE_NOT_ACCEPTED, MEDIASUBTYPE_MPEG2_VIDEO},
        {"source: E_INVALIDARG", &audio, E_INVALIDARG, S_OK, VFW_E_TYPE_NOT_ACCEPTED,
         MEDIASUBTYPE_MPEG2_VIDEO},
        {"buffers, full type", &mpeg2, S_FALSE, E_FAIL, E_FAIL, MEDIASUBTYPE_MPEG2_VIDEO},
        {"buffers, any type", nullptr, S_FALSE, E_FAIL, E_FAIL, MEDIASUBTYPE_MPEG2_VIDEO},
    };
    for (const auto& c : cases) {
        Source().m_hrNotAcceptable = c.hrNotAcceptable;
        Source().m_hrBufferSize = c.hrBufferSize;
        Sink().m_accepted = c.sinkAccepts;
        EXPECT_EQ(c.hrExpected, Connect(c.pType)) << c.name;
        EXPECT_TRUE(AreApart()) << c.name;
    }
    EXPECT_EQ(S_FALSE, Source().QueryAccept(&audio));
    EXPECT_EQ(VFW_E_INVALID_DIRECTION, Source().Connect(&pDown->m_source, &mpeg2));
    Source().m_hrBufferSize = S_OK;
    ASSERT_EQ(S_OK, pDown->Pause());
    EXPECT_EQ(VFW_E_NOT_STOPPED, Connect(&mpeg2));
    EXPECT_TRUE(AreApart());
}

// A second thread connects or disconnects while the filter starts its threads.
TEST_F(GraphConnection, FilterMayForbidChangesAlthoughItIsStopped) {
    pUp->m_bStarting = true;
    EXPECT_EQ(VFW_E_NOT_STOPPED, Connect());
    pUp->m_bStarting = false;
    ASSERT_EQ(S_OK, Connect());
    pUp->m_bStarting = true;
    EXPECT_EQ(VFW_E_NOT_STOPPED, Source().Disconnect());
    EXPECT_TRUE(Source().IsConnected());
}

TEST_F(GraphConnection, StatesLeadTheConnectedPinsAndTheAllocator) {
    ASSERT_EQ(S_OK, Connect());
    pUp->m_log.clear();
    CComPtr<IMediaSample> pSample;
    EXPECT_EQ(VFW_E_NOT_COMMITTED, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));
    ASSERT_EQ(S_OK, pUp->Run(50));
    ASSERT_EQ(S_OK, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));
    pSample = nullptr;
    ASSERT_EQ(S_OK, pUp->Pause());
    ASSERT_EQ(S_OK, pUp->Stop());
    EXPECT_EQ(VFW_E_NOT_COMMITTED, Source().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0));
    ASSERT_EQ(S_OK, pUp->Stop()) << "the pins are not called again";
    EXPECT_EQ((Log{"source active", "source runs", "source inactive"}), pUp->m_log);
    Source().m_hrActive = E_ABORT;
    EXPECT_EQ(E_ABORT, pUp->Run(0));
    EXPECT_TRUE(pUp->IsStopped());
}

TEST_F(GraphConnection, InputTakesSamplesOnlyWhileStreaming) {
    EXPECT_EQ(VFW_E_NOT_CONNECTED, Sink().CheckStreaming());
    EXPECT_EQ(VFW_E_NOT_CONNECTED, Source().DeliverEndOfStream());
    ASSERT_EQ(S_OK, Connect());
    EXPECT_EQ(VFW_E_WRONG_STATE, Sink().CheckStreaming());
    ASSERT_EQ(S_OK, pUp->Pause());
    ASSERT_EQ(S_OK, pDown->Pause());
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

TEST_F(GraphConnection, EnumeratorsKeepTheirPlaceAndSeeChanges) {
    Source().m_types = {kMpeg2, kMpeg1, kAudio};
    CComPtr<IEnumMediaTypes> pTypes, pClone;
    ASSERT_EQ(S_OK, Source().EnumMediaTypes(pTypes.Put()));
    AM_MEDIA_TYPE* apTypes[4] = {};
    ULONG nTypes = 7;
    EXPECT_EQ(E_POINTER, pTypes->Next(1, nullptr, &nTypes));
    EXPECT_EQ(E_INVALIDARG, pTypes->Next(2, apTypes, nullptr));
    EXPECT_EQ(S_OK, pTypes->Next(0, apTypes, &nTypes));
    EXPECT_EQ(0U, nTypes);
    EXPECT_EQ(S_OK, pTypes->Skip(1));
    ASSERT_EQ(S_OK, pTypes->Clone(pClone.Put()));
    EXPECT_EQ(S_FALSE, pTypes->Next(4, apTypes, &nTypes));
    ASSERT_EQ(2U, nTypes);
    EXPECT_TRUE(kMpeg1 == *apTypes[0] && kAudio == *apTypes[1]);
    for (ULONG n = 0; n < nTypes; ++n) DeleteMediaType(apTypes[n]);
    EXPECT_EQ(S_OK, pClone->Skip(2)) << "a clone goes on where the original was";
    EXPECT_EQ(S_FALSE, pClone->Skip(5));
    EXPECT_EQ(S_FALSE, pClone->Next(1, apTypes, &nTypes)) << "it is at the end";

    Source().IncrementTypeVersion();
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pTypes->Next(1, apTypes, nullptr));
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pTypes->Skip(0));
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pTypes->Clone(pClone.Put()));
    EXPECT_FALSE(pClone);
    EXPECT_EQ(S_OK, pTypes->Reset());
    EXPECT_EQ(S_OK, pTypes->Skip(3));
}

TEST_F(GraphConnection, FilterFindsItsPins) {
    CComPtr<IPin> pPin;
    EXPECT_EQ(S_OK, pUp->FindPin(L"Input", pPin.Put()));
    EXPECT_EQ(&pUp->m_sink, pPin.Get());
    EXPECT_EQ(VFW_E_NOT_FOUND, pUp->FindPin(L"Out", pPin.Put()));
    CComPtr<IEnumPins> pPins;
    ASSERT_EQ(S_OK, pUp->EnumPins(pPins.Put()));
    EXPECT_EQ(S_OK, pPins->Skip(1));
    EXPECT_EQ(S_OK, pPins->Next(1, pPin.Put(), nullptr));
    EXPECT_EQ(&pUp->m_sink, pPin.Get());
    EXPECT_EQ(S_FALSE, pPins->Next(1, pPin.Put(), nullptr));
}

TEST_F(GraphConnection, PullPinHoldsOneReader) {
    struct CReadable final : CUnknown {
        HRESULT NonDelegatingQueryInterface(REFIID, void** ppv) override {
            return GetInterface<IAsyncReader>(&reader, ppv);
        }
        CMemoryReader reader{{}};
    };
    CPullPin pull;
    EXPECT_EQ(E_NOINTERFACE, pull.Connect(static_cast<IPin*>(&Source()), nullptr, false));
    auto* pReadable = new CReadable;
    const CComPtr<IUnknown> pUpstream(pReadable->GetOwner());
    EXPECT_EQ(S_OK, pull.Connect(pUpstream.Get(), nullptr, false));
    EXPECT_EQ(&pReadable->reader, pull.GetReader().Get());
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, pull.Connect(pUpstream.Get(), nullptr, false));
    EXPECT_EQ(S_OK, pull.Disconnect());
    EXPECT_FALSE(pull.GetReader());
}

}  // namespace
}  // namespace kest

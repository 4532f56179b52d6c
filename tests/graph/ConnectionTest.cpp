// Connections: how two pins agree on a type and an allocator, how that fails, and what the states do with them.
#include <gtest/gtest.h>

#include "support/GraphPins.h"

namespace kest {
namespace {

const CMediaType kMpeg2(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
const CMediaType kMpeg1(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Payload);
const CMediaType kAudio(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG2_VIDEO);

CMediaType Full(CMediaType type) { return type.SetFormatType(FORMAT_None), type; }

class GraphConnection : public ::testing::Test, protected PinPair {};

TEST_F(GraphConnection, AgreesOnTypeAndAllocatorAndDisconnects) {
    source.m_types = {kAudio, kMpeg1, kMpeg2};
    ASSERT_EQ(S_OK, Connect());
    CMediaType agreed;
    EXPECT_EQ(S_OK, sink.ConnectionMediaType(&agreed));
    EXPECT_TRUE(agreed == kMpeg2 && source.GetConnected() == &sink && sink.GetConnected() == &source);
    EXPECT_EQ(source.Allocator(), sink.Allocator()) << "the downstream pin's own is preferred";
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, Connect());
    // A second thread connects or disconnects while the filter starts its threads.
    pUp->m_bStarting = true;
    EXPECT_EQ(VFW_E_NOT_STOPPED, source.Disconnect());
    pUp->m_bStarting = false;
    Disconnect();
    EXPECT_EQ(S_FALSE, source.Disconnect());
    EXPECT_TRUE(AreApart());
    pUp->m_bStarting = true;
    EXPECT_EQ(VFW_E_NOT_STOPPED, Connect());
}

TEST_F(GraphConnection, FailuresHaveTheirCodesAndLeaveNothingBehind) {
    const CMediaType mpeg1 = Full(kMpeg1), mpeg2 = Full(kMpeg2), audio = Full(kAudio);
    struct {
        const char* name;
        const AM_MEDIA_TYPE* pType;
        HRESULT hrNotAcceptable, hrBufferSize, hrExpected;
        GUID sinkAccepts = MEDIASUBTYPE_MPEG2_VIDEO;
    } const cases[] = {
        {"no common type", nullptr, S_FALSE, S_OK, VFW_E_NO_ACCEPTABLE_TYPES, MEDIASUBTYPE_MPEG1Payload},
        {"partial type", &kAudio, S_FALSE, S_OK, VFW_E_NO_ACCEPTABLE_TYPES},
        {"sink, full type", &mpeg1, S_FALSE, S_OK, VFW_E_TYPE_NOT_ACCEPTED},
        {"source, full type", &audio, E_INVALIDARG, S_OK, VFW_E_TYPE_NOT_ACCEPTED},
        {"buffers, any type", nullptr, S_FALSE, E_FAIL, E_FAIL},
    };
    for (const auto& c : cases) {
        source.m_hrNotAcceptable = c.hrNotAcceptable;
        source.m_hrBufferSize = c.hrBufferSize;
        sink.m_accepted = c.sinkAccepts;
        EXPECT_EQ(c.hrExpected, Connect(c.pType)) << c.name;
        EXPECT_TRUE(AreApart()) << c.name;
    }
    EXPECT_EQ(VFW_E_INVALID_DIRECTION, source.Connect(&pDown->m_source, &mpeg2));
}

TEST_F(GraphConnection, InputTakesSamplesOnlyWhileStreaming) {
    Connect();
    EXPECT_EQ(VFW_E_WRONG_STATE, sink.CheckStreaming());
    pUp->Pause();
    pDown->Pause();
    source.DeliverBeginFlush();
    EXPECT_EQ(S_FALSE, sink.CheckStreaming());
    source.DeliverEndFlush();
    const auto pSample = TakeSample(source.Allocator());
    CMediaType changed = kMpeg1;
    pSample->SetMediaType(&changed);
    EXPECT_EQ(VFW_E_INVALIDMEDIATYPE, source.Deliver(pSample.Get()));
    pSample->SetMediaType(nullptr);
    EXPECT_EQ(VFW_E_RUNTIME_ERROR, source.Deliver(pSample.Get())) << "until the next stop or flush";
    source.DeliverEndFlush();
    EXPECT_EQ(S_OK, source.Deliver(pSample.Get()));
}

TEST_F(GraphConnection, EnumeratorsKeepTheirPlaceAndSeeChanges) {
    source.m_types = {kMpeg2, kMpeg1, kAudio};
    CComPtr<IEnumMediaTypes> pTypes, pClone;
    ASSERT_EQ(S_OK, source.EnumMediaTypes(pTypes.Put()));
    AM_MEDIA_TYPE* apTypes[4] = {};
    ULONG nTypes = 7;
    EXPECT_EQ(E_INVALIDARG, pTypes->Next(2, apTypes, nullptr));
    EXPECT_EQ(S_OK, pTypes->Next(0, apTypes, &nTypes));
    EXPECT_EQ(0U, nTypes);
    EXPECT_EQ(S_OK, pTypes->Skip(1));
    ASSERT_EQ(S_OK, pTypes->Clone(pClone.Put()));
    EXPECT_EQ(S_FALSE, pTypes->Next(4, apTypes, &nTypes));
    ASSERT_EQ(2U, nTypes);
    const MediaTypePtr pFirst(apTypes[0]), pSecond(apTypes[1]);
    EXPECT_TRUE(kMpeg1 == *pFirst && kAudio == *pSecond);
    EXPECT_EQ(S_FALSE, pClone->Skip(3)) << "a clone goes on where the original was";
    EXPECT_EQ(S_FALSE, pClone->Next(1, apTypes, &nTypes)) << "it is at the end";

    source.IncrementTypeVersion();
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pTypes->Next(1, apTypes, nullptr));
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pTypes->Clone(pClone.Put()));
    EXPECT_TRUE(pTypes->Reset() == S_OK && pTypes->Skip(3) == S_OK);
}

}  // namespace
}  // namespace kest

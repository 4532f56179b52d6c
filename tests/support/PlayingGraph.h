// A demultiplexer in a graph: a real stream, and two sinks that count.
#pragma once

#include <gtest/gtest.h>

#include <atomic>

#include "host/FileReader.h"
#include "host/FileSource.h"
#include "host/Graph.h"
#include "host/Sink.h"
#include "support/TestData.h"
#include "support/TestThreads.h"

namespace kest {

/// Counts the ends of the stream.
class CCounter final : public ISinkHandler {
public:
    void OnSample(IMediaSample&) override {}
    void OnEndOfStream() override { ++m_nEnds; }

    std::atomic<int> m_nEnds{0};
};

/// Source, filter and two sinks, connected and stopped.
class CPlayingGraph {
public:
    explicit CPlayingGraph(CComPtr<IBaseFilter> pDemux) : m_pDemux(std::move(pDemux)) {
        std::error_code error;
        const auto pReader = CFileReader::Open(TestDataPath("ps_mpeg2_packs.mpg"), error);
        m_pSource = new CFileSource(CComPtr<IAsyncReader>(pReader.Get()));
        m_pGraph->AddFilter(m_pSource.Get(), L"source");
        m_pGraph->AddFilter(m_pDemux.Get(), L"demultiplexer");
        m_pGraph->AddFilter(m_pVideo.Get(), L"video");
        m_pGraph->AddFilter(m_pAudio.Get(), L"audio");
        m_pGraph->SetDefaultSyncSource();
        EXPECT_EQ(m_pGraph->Connect(m_pSource->GetPin(0), Pin(L"Input").Get()), S_OK);
        EXPECT_EQ(m_pGraph->Connect(Pin(L"Video Output").Get(), m_pVideo->GetPin(0)), S_OK);
        EXPECT_EQ(m_pGraph->Connect(Pin(L"Audio Output").Get(), m_pAudio->GetPin(0)), S_OK);
    }

    CComPtr<IPin> Pin(LPCWSTR pszName) const {
        CComPtr<IPin> pPin;
        m_pDemux->FindPin(pszName, pPin.Put());
        return pPin;
    }

    /// Waits until both streams have ended. False when that takes too long.
    bool HasPlayed() {
        return Eventually([this] { return m_video.m_nEnds > 0 && m_audio.m_nEnds > 0; });
    }

    CComPtr<IMediaSeeking> Seeking() const {
        CComPtr<IMediaSeeking> pSeeking;
        m_pDemux->QueryInterface(IID_IMediaSeeking, reinterpret_cast<void**>(pSeeking.Put()));
        return pSeeking;
    }
    void Seek(REFERENCE_TIME rt) {
        Seeking()->SetPositions(&rt, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning);
    }

    CCounter m_video, m_audio;
    CPacer m_pacer{5};
    CEvent m_evNotice{false};
    CComPtr<IBaseFilter> m_pDemux;
    CComPtr<CFileSource> m_pSource;
    CComPtr<CSink> m_pVideo{new CSink(EStream::Video, m_video, m_pacer, m_evNotice)};
    CComPtr<CSink> m_pAudio{new CSink(EStream::Audio, m_audio, m_pacer, m_evNotice)};
    CComPtr<CGraph> m_pGraph{new CGraph};  // last: it stops before the others are gone
};

}  // namespace kest

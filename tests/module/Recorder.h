#pragma once

#include <dshow.h>
#include <qedit.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace kest {

/// Fails the case: the program prints the text and ends with 1.
inline void Require(bool bTrue, const std::string& strWhat) {
    if (!bTrue) throw std::runtime_error(strWhat);
}

enum EStream { kAudio, kVideo };

inline std::uint32_t GetCrc32(const BYTE* pBytes, long nSize) {
    std::uint32_t nCrc = 0xFFFFFFFF;
    for (long i = 0; i < nSize; ++i) {
        nCrc ^= pBytes[i];
        for (int nBit = 0; nBit < 8; ++nBit) nCrc = (nCrc >> 1) ^ (nCrc & 1 ? 0xEDB88320 : 0);
    }
    return ~nCrc;
}

/// What a listed sample says of its bytes: size and CRC-32.
inline std::string GetBytes(const std::string& strSample) {
    const std::size_t nBegin = strSample.find("\"size\"");
    return strSample.substr(nBegin, strSample.find("\"syncPoint\"") - nBegin);
}

/// Lists the samples that pass the two sample grabbers, and lets neither stream run ahead: nobody plays them, and
/// a stream that is seconds ahead of the other is taken for a broken one. The first sample of a stream waits for
/// the first of the other, later ones until they are at most half a second ahead; a stream that does not deliver
/// for a while is not waited for.
///
/// The grabbers call it on the threads of the graph; everything may be called from any thread.
class CRecorder {
public:
    /// What the grabber of a stream calls; it lives as long as the recorder.
    ISampleGrabberCB* GetCallback(EStream stream) { return &m_aCallbacks[stream]; }

    /// Forgets all samples and waits for the next beginning of each stream, a sample with a discontinuity: during the
    /// flush of a seek a grabber may show more of the old place, which the renderer behind it refuses. A beginning that
    /// comes again takes the place of all that came before the graph runs: the host seeks twice, once through each pin,
    /// and the audio's restart between the seeks may have flushed the video's first sample to bring the next.
    void Begin() {
        std::lock_guard lock(m_mutex);
        m_aTracks = {};
        ++m_nBeginning;
        m_changed.notify_all();
    }

    /// Whether a stream waits for the other: while the graph runs. False also ends the waits: for stops and flushes, of
    /// which a grabber knows nothing.
    void SetPacing(bool bOn) {
        std::lock_guard lock(m_mutex);
        m_bPacing = bOn;
        m_changed.notify_all();
    }

    /// The samples of a stream from its beginning on, as `kestdemux samples --json` lists them.
    std::vector<std::string> GetSamples(EStream stream) const {
        std::lock_guard lock(m_mutex);
        return m_aTracks[stream].samples;
    }

    /// Waits until a stream has so many samples; fails after 10 seconds.
    void RequireSamples(EStream stream, std::size_t nCount) const {
        std::unique_lock lock(m_mutex);
        const Track& track = m_aTracks[stream];
        Require(m_changed.wait_for(lock, kTooLong, [&] { return track.samples.size() >= nCount; }),
                "too few samples");
    }
    /// The same for both streams.
    void RequireSamples(std::size_t nCount) const {
        for (const EStream stream : {kAudio, kVideo}) RequireSamples(stream, nCount);
    }

private:
    static constexpr REFERENCE_TIME kLead = 5'000'000;  // 100 ns that a stream may be ahead
    static constexpr std::chrono::milliseconds kLongestWait{300};
    static constexpr std::chrono::seconds kTooLong{10};

    struct Track {
        std::vector<std::string> samples;
        REFERENCE_TIME rtLatest = 0;  // start of the last sample with times, 100 ns
        bool bRunning = false;        // a sample has come while the graph runs
        bool bBegun = false;          // a sample with times has come
        bool bAwaited = true;         // the other stream waits for this one
    };

    class CCallback final : public ISampleGrabberCB {
    public:
        CCallback(CRecorder& recorder, EStream stream) : m_recorder(recorder), m_stream(stream) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }  // unused
        ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives longer than the graph
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
        HRESULT STDMETHODCALLTYPE BufferCB(double, BYTE*, LONG) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE SampleCB(double, IMediaSample* pSample) override {
            m_recorder.OnSample(m_stream, *pSample);
            return S_OK;
        }

    private:
        CRecorder& m_recorder;
        const EStream m_stream;
    };

    void OnSample(EStream stream, IMediaSample& sample) {
        const auto Flag = [](HRESULT hr) { return hr == S_OK ? "true" : "false"; };
        REFERENCE_TIME rtStart = 0, rtStop = 0;
        const bool bTimed = SUCCEEDED(sample.GetTime(&rtStart, &rtStop));
        const long nSize = sample.GetActualDataLength();
        BYTE* pBytes = nullptr;
        sample.GetPointer(&pBytes);
        std::array<char, 300> szText{};
        std::snprintf(szText.data(), szText.size(),
                      R"({"pin":"%s","event":"sample","start":%s,"stop":%s,"size":%ld,"crc32":"%08x",)"
                      R"("syncPoint":%s,"discontinuity":%s,"preroll":%s})",
                      stream == kAudio ? "audio" : "video", bTimed ? std::to_string(rtStart).c_str() : "null",
                      bTimed ? std::to_string(rtStop).c_str() : "null", nSize, GetCrc32(pBytes, nSize),
                      Flag(sample.IsSyncPoint()), Flag(sample.IsDiscontinuity()), Flag(sample.IsPreroll()));
        std::unique_lock lock(m_mutex);
        Track& own = m_aTracks[stream];
        const bool bBegins = sample.IsDiscontinuity() == S_OK;
        if (bBegins && !own.bRunning && !own.samples.empty() &&
            GetBytes(own.samples[0]) == GetBytes(szText.data()))
            own.samples.clear();
        own.bRunning = own.bRunning || m_bPacing;
        if (bBegins || !own.samples.empty()) own.samples.push_back(szText.data());
        m_changed.notify_all();
        if (bTimed) WaitForOther(own, m_aTracks[1 - stream], rtStart, lock);
    }

    void WaitForOther(Track& own, Track& other, REFERENCE_TIME rtStart, std::unique_lock<std::mutex>& lock) {
        own.rtLatest = rtStart;
        own.bBegun = own.bAwaited = true;
        const bool bTogether = m_changed.wait_for(lock, kLongestWait, [&, nBeginning = m_nBeginning] {
            return !m_bPacing || nBeginning != m_nBeginning || !other.bAwaited ||
                   (other.bBegun && rtStart - other.rtLatest <= kLead);
        });
        if (!bTogether) other.bAwaited = false;
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;  // any of the following has
    std::array<Track, 2> m_aTracks;             // by stream
    bool m_bPacing = false;                     // see SetPacing
    unsigned m_nBeginning = 0;                  // counts calls of Begin, which ends the waits
    std::array<CCallback, 2> m_aCallbacks{CCallback{*this, kAudio}, CCallback{*this, kVideo}};
};

}  // namespace kest

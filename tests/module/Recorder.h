#pragma once

#include <dshow.h>
#include <qedit.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace kest {

enum class EStream { Audio, Video };

inline constexpr std::array kStreams = {EStream::Audio, EStream::Video};

/// What a sample said of itself.
struct SampleRecord {
    bool bTimed;             // it has times
    REFERENCE_TIME rtStart;  // 100 ns
    REFERENCE_TIME rtStop;   // 100 ns
    long nSize;              // bytes
    std::uint32_t nCrc;      // CRC-32 of its bytes
    bool bSyncPoint;         // its flags
    bool bDiscontinuity;
    bool bPreroll;

    /// As the listing of the program shows it, one JSON object.
    std::string ToJson(EStream stream) const;
};

/// Keeps a record of every sample that passes the two grabbers, and keeps the streams abreast: nobody plays
/// them, and a stream that comes seconds before the other is taken for a broken one. The first sample of a
/// stream waits for the first of the other, later ones until they are at most half a second ahead; a stream
/// that gives nothing for a while is not waited for.
///
/// The grabbers call it on the threads of the graph; everything may be called from any thread.
class CRecorder {
public:
    CRecorder() = default;
    CRecorder(const CRecorder&) = delete;
    CRecorder& operator=(const CRecorder&) = delete;

    /// What a grabber of this stream calls; lives as long as the recorder.
    ISampleGrabberCB* GetCallback(EStream stream) { return &m_aCallbacks[Index(stream)]; }
    /// Forgets all samples: both streams begin anew.
    void Begin();
    /// Whether the streams are kept abreast, which they are not at first. Off lets go whoever waits: for
    /// stops and flushes, of which a grabber does not tell.
    void SetPacing(bool bOn);
    std::vector<SampleRecord> GetSamples(EStream stream) const;
    /// Waits until both streams have so many samples. @return false: not within the time.
    bool WaitForBoth(std::size_t nCount, DWORD nTimeoutMs) const;

private:
    class CCallback final : public ISampleGrabberCB {
    public:
        CCallback(CRecorder& recorder, EStream stream) : m_recorder(recorder), m_stream(stream) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
        ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives longer than the graph
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
        HRESULT STDMETHODCALLTYPE SampleCB(double, IMediaSample* pSample) override;
        HRESULT STDMETHODCALLTYPE BufferCB(double, BYTE*, LONG) override { return E_NOTIMPL; }

    private:
        CRecorder& m_recorder;
        const EStream m_stream;
    };
    struct Track {
        std::vector<SampleRecord> samples;
        REFERENCE_TIME rtLatest = 0;  // start of the last sample with times, 100 ns
        bool bBegun = false;          // a sample has come
        bool bAwaited = true;         // the other stream waits for this one
    };

    static std::size_t Index(EStream stream) { return static_cast<std::size_t>(stream); }
    void OnSample(EStream stream, const SampleRecord& sample);
    void KeepAbreast(EStream stream, REFERENCE_TIME rtStart, std::unique_lock<std::mutex>& lock);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;  // a track has
    std::array<Track, 2> m_aTracks;             // by stream
    bool m_bPacing = false;                     // the streams are kept abreast
    unsigned m_nBeginning = 0;                  // counts them: who waits across one is let go
    std::array<CCallback, 2> m_aCallbacks{CCallback{*this, EStream::Audio}, CCallback{*this, EStream::Video}};
};

}  // namespace kest

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "demux/SourceDescription.h"
#include "demux/StreamTypeProbe.h"
#include "demux/TimeSearch.h"
#include "graph/PullPin.h"
#include "pins/AvTiming.h"

namespace kest {

/// The source behind the filter's input pin: its reader, the class of its stream and its bit rate.
///
/// Locking: changed under the filter's pin lock, while no thread of the path runs. Others read it under that
/// lock, or while the filter is not stopped. `IsPushSource` may be called at any time.
class CSource {
public:
    /// Takes the reader (IAsyncReader) of an upstream pin. Without one the source is a push source.
    /// @return S_OK, also for a push source; VFW_E_ALREADY_CONNECTED while a reader is held.
    HRESULT Connect(IPin* pUpstream);
    /// Gives the reader back; the bit rate stays.
    void Disconnect();
    /// The upstream pin cannot be read, or there is none.
    bool IsPushSource() const { return m_bPushSource; }
    /// The reader, from the attempt to connect to the disconnection; else null.
    CComPtr<IAsyncReader> GetReader() const { return m_PullPin.GetReader(); }

    /// Reads the beginning of the source.
    /// @param bAdmitAll   every class is admitted, not program streams alone.
    /// @param bAssumeMap  a program stream without a program stream map, or without a video in it, is admitted as well;
    ///                    its class is that of its video, see SourceDescription.
    /// @return the class (EStreamClass) of a stream that is admitted; else 6.
    int ClassifyStream(bool bAdmitAll, bool bAssumeMap);
    /// Reads what the streams say of themselves. A source that cannot be read says nothing.
    void Describe();
    /// What the last `Describe` of the connection found.
    const SourceDescription& GetDescription() const { return m_description; }
    /// Bits per second of the last program stream that was classified; 0 before, and for a push source, whose
    /// stream is another.
    std::uint32_t GetBitRate() const { return m_bPushSource ? 0 : m_nBitRate; }
    /// The byte that a media time (100 ns) stands for, rt * bit rate / 8 / 10000000 rounded down. A time before
    /// the beginning is the beginning, one beyond the last file position is that position.
    /// @return nothing while the bit rate is unknown.
    std::optional<std::int64_t> FindPosition(REFERENCE_TIME rt) const;

    // ---- by time

    /// Whether the source is searched by the timestamps in it, which `Disconnect` ends.
    void SearchByTime(bool bByTime) { m_bByTime = bByTime; }
    /// Measures the time that a program stream covers, if it is to be searched by time and can be; once for a
    /// connection, as long as the length stays.
    /// @param nVideoId  see CTimeSearch.
    void MeasureTime(std::int64_t llLength, EVideoCoding coding, std::uint8_t nVideoId);
    /// That time.
    std::optional<TimeExtent> GetTimeExtent() const;
    /// Where a seek to a media time goes: by time, else by the bit rate.
    struct Place {
        std::int64_t llPosition;           // byte to begin at
        std::optional<SeekTarget> target;  // by time: what the segment begins with
    };
    /// @param rt  100 ns; a time outside the source is that of its nearer end.
    /// @return nothing while neither times nor bit rate are known.
    std::optional<Place> FindPlace(REFERENCE_TIME rt);

private:
    CPullPin m_PullPin;                       // holds the reader
    CStreamTypeProbe m_Probe;                 // classifies the stream
    SourceDescription m_description;          // see GetDescription
    std::uint32_t m_nBitRate = 0;             // see GetBitRate
    std::atomic<bool> m_bPushSource{true};    // see IsPushSource
    bool m_bByTime = false;                   // see SearchByTime
    std::optional<CTimeSearch> m_timeSearch;  // see MeasureTime; its reader is that of m_PullPin
};

}  // namespace kest

#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/MapEntries.h"
#include "demux/ParseSettings.h"

namespace kest {

/// What the tables of a transport stream say (ISO/IEC 13818-1 2.4.4): the PID of its program map, and the
/// PIDs and kind of the video and the audio in it. Of several programs or streams the last one listed counts, unless
/// streams were chosen. Streams of MPEG-1 video, which is split as MPEG-2, can be chosen alone.
///
/// A section lies in one packet. A table that fails keeps what was read of it; a trace text names the fault.
/// The CRC is not examined.
class CTsTables {
public:
    CTsTables() = default;
    /// With the chosen streams of the settings: a PID is taken whether it is listed or not.
    explicit CTsTables(const ParseSettings& settings);

    /// Reads the PAT. @param packet  the transport packet that holds it. @return whether it is without fault.
    bool ParsePat(Bytes packet);
    /// Reads the PMT, likewise.
    bool ParsePmt(Bytes packet);

    /// 0: there is none.
    std::uint16_t GetPmtPid() const { return m_nPmtPid; }
    std::uint16_t GetVideoPid() const { return m_nVideoPid; }
    std::uint16_t GetAudioPid() const { return m_nAudioPid; }
    /// A stream was chosen by its PID.
    bool HasChosenPid() const { return m_nVideoChoice > 0 || m_nAudioChoice > 0; }
    /// The video is MPEG-4, else MPEG-2.
    bool IsVideoMpeg4() const { return m_bVideoMpeg4; }

    friend bool operator==(const CTsTables&, const CTsTables&) = default;

private:
    bool ParseEntry(const MapEntry& entry);

    std::int32_t m_nVideoChoice = kAllStreams;  // see ParseSettings
    std::int32_t m_nAudioChoice = kAllStreams;
    std::uint16_t m_nPmtPid = 0;
    std::uint16_t m_nVideoPid = 0;
    std::uint16_t m_nAudioPid = 0;
    std::uint16_t m_nPcrPid = 0;  // examined, not used
    bool m_bVideoMpeg4 = false;   // see IsVideoMpeg4
};

}  // namespace kest

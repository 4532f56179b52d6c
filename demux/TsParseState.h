#pragma once

#include <cstdint>
#include <vector>

#include "demux/FrameOutput.h"
#include "demux/StreamInput.h"
#include "demux/StreamParser.h"
#include "demux/TsAudioFramer.h"
#include "demux/TsPacketReader.h"
#include "demux/TsTables.h"
#include "demux/TsVideoClock.h"
#include "demux/TsVideoFramer.h"

namespace kest {

/// Parses a transport stream (ISO/IEC 13818-1 2.4): finds its packets and, once a run, its tables, and passes
/// the packets of one video and one audio stream on to be split into frames.
///
/// A run needs its buffers: `Prepare` comes before each, and the end of the run gives them back. A run fails
/// when the stream has no tables; what fails is tried three times. It ends when the input has no more, or no
/// packet can be found; then the rest of each stream is queued as one frame.
///
/// With `bDrain` the frames hold the payload of the PES packets that begin in the stream, to the last whole transport
/// packet. The tables may come late: up to 4 MiB of packets in front of them are kept and split when they have come. A
/// run fails only when its input ends before them and no stream was chosen by its PID.
class CTsParseState final : public CStreamParser {
public:
    /// All of these are borrowed.
    CTsParseState(CStreamInput& input, CFrameOutput& video, CFrameOutput& audio)
        : m_reader(input, m_counters), m_video(m_clock, video), m_audio(m_clock, audio) {}

    /// Forgets what the runs before came to and gets the buffers. Not during a run.
    /// @return 0, or -1 when there is not enough memory.
    int Prepare(ETsTiming timing);

    void Begin() override;
    /// Parses some packets; the first time, also the tables. Waits where the input has none.
    EParsed ParseUnit() override;
    void End() override;
    /// Gives the buffers back: what is in them is dropped, and the run cannot go on.
    void Reset() override;

private:
    bool FindTables();
    bool AwaitTables();
    bool ParseAnyTable(Bytes packet);
    bool Keep(Bytes packet);
    void ParseKept();
    /// Streams of a kind: how many stream_ids they have from the first one on, and the counter of their PES packets.
    struct Kind {
        std::uint8_t nFirstId, nIds;
        CCount& nPackets;
    };
    template <class Framer>
    void AssemblePes(Framer& framer, Bytes packet, const Kind& kind);
    bool ParseTable(std::uint16_t nPid, bool (CTsTables::*pParse)(Bytes), const char* pszNotFound);
    void OnPacket(Bytes packet);
    bool IsPrepared() { return m_audio.GetBuffer().IsAllocated(); }

    CTsPacketReader m_reader;
    CTsTables m_tables;
    CTsVideoClock m_clock;
    CTsVideoFramer m_video;
    CTsAudioFramer m_audio;
    bool m_bTables = false;            // the tables of the run have been read
    std::vector<std::uint8_t> m_kept;  // packets in front of the tables
};

}  // namespace kest

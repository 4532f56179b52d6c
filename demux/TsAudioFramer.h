#pragma once

#include <cstdint>

#include "demux/FrameOutput.h"
#include "demux/MpegAudioHeader.h"
#include "demux/PesBuffer.h"
#include "demux/TsVideoClock.h"

namespace kest {

/// Splits the audio of a transport stream into audio frames: its PES packets in, frames with timestamps into
/// a frame output. The frames of a PES packet with timestamps are queued when the next such packet comes: as
/// many as fit between the two packets' times, at equal distances. With elementary timing they are counted
/// from the time on that the video's clock gives, and held back until there is one.
///
/// When draining, every byte of payload is queued; without times what stands before the first timestamp, and what
/// cannot be held back any longer. Then a PES packet has as many frames as headers, and their times follow from its own
/// by their durations, wherever the timestamps of the next packet are.
class CTsAudioFramer {
public:
    /// Both are borrowed.
    CTsAudioFramer(const CTsVideoClock& clock, CFrameOutput& output) : m_clock(clock), m_output(output) {}

    /// A run begins; the buffer is empty.
    void Begin(ETsTiming timing);
    /// Nothing is dropped. Before the run's first packet.
    /// @param bAlone  there is no video to wait for: with elementary timing the first timestamp is the first time.
    void SetDrain(bool bDrain, bool bAlone) {
        m_bDrain = bDrain;
        m_bAlone = bAlone;
    }
    /// The packets go here.
    CPesBuffer& GetBuffer() { return m_buffer; }
    /// Payload that comes into no frame.
    void CountLost(std::size_t nBytes) { m_output.CountLost(nBytes); }
    /// The PES packet in the buffer is complete.
    void OnPes();
    /// The stream has ended: what there is left is one frame, or when draining as many as there are headers.
    void Flush();

private:
    void Take(Bytes part);
    void OnFirstFrames(Bytes payload);
    void OnNextFrames(Bytes payload, const PesTimestamps& timestamps);
    void EndFrames(Bytes payload);
    std::size_t CountMissing() const;
    void EmitFrames(const PesTimestamps& next, std::int64_t llFrames, std::uint32_t nFrameSize);
    void EmitRest(bool bAll);
    void QueueFrame(std::size_t nSize);
    PesTimestamps CountTime();
    std::optional<std::uint64_t> GetBase() const { return m_ownBase ? m_ownBase : m_clock.GetAudioBase(); }

    const CTsVideoClock& m_clock;
    CFrameOutput& m_output;
    CPesBuffer m_buffer;
    ETsTiming m_timing = ETsTiming::Pes;
    bool m_bDrain = false;                         // see SetDrain
    bool m_bAlone = false;                         // see SetDrain
    std::optional<std::uint64_t> m_ownBase;        // first time, 27 MHz, of audio that is alone
    PesTimestamps m_next = kNoTimestamps;          // of the next frame
    std::optional<MpegAudioHeader> m_description;  // the first header without fault; with it counting begins
    std::uint64_t m_nFrames = 0;                   // frames queued with elementary timing
    std::int64_t m_llPending = 0;                  // frames that the times so far make room for
};

}  // namespace kest

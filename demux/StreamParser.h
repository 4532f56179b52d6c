#pragma once

#include "demux/ParseCounters.h"
#include "demux/ParseSettings.h"

namespace kest {

/// What one step of a parser came to.
enum class EParsed {
    Unit,       // a structure of the stream, or a place where one should be
    Searching,  // no structure yet, bytes were skipped
    NoData,     // the input has nothing more for now
    Ended,      // the parser does not go on: the run is over
    Failed,     // the same, before there was anything to parse
};

/// Parses the streams of one family: bytes from a stream input in, frames into frame outputs. It knows of
/// no thread; a demuxer's worker calls it step by step.
class CStreamParser {
public:
    virtual ~CStreamParser() = default;

    /// Extensions, for the runs that follow. Not during a run.
    void SetSettings(const ParseSettings& settings) { m_settings = settings; }

    /// A run begins: back to the state of a new parser.
    virtual void Begin() = 0;
    /// Parses the next structure, or skips bytes in search of it: a bounded number, except as long as the input
    /// has no structure at all.
    virtual EParsed ParseUnit() = 0;
    /// A run that has not failed is over: the parser queues what it has, if that is the family's way.
    virtual void End() {}
    /// The input has ended, and all that `ParseUnit` can parse has been: parses the rest to its last byte and
    /// queues the frames that are being assembled. Called with `bDrain` alone.
    virtual void Drain() {}
    /// The input has jumped: drops the frames that are being assembled, and all that belongs to them. What
    /// the stream said about itself stays.
    virtual void Reset() = 0;

    /// What it has met so far. Any thread.
    const ParseCounters& GetCounters() const { return m_counters; }

protected:
    ParseSettings m_settings;  // see SetSettings
    ParseCounters m_counters;  // see GetCounters
};

}  // namespace kest

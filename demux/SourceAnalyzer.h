#pragma once

#include "demux/BigEndian.h"
#include "demux/SourceDescription.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// Finds out what a source is from its own headers: container, elementary streams, formats, first and last
/// timestamps.
///
/// It reads the beginning, 256 KiB or, until every stream that is listed or seen has its headers, up to 4 MiB; and
/// of a container with timestamps as much of the end. No length is trusted: a packet counts when another start code,
/// or nothing, follows it. Without state; for any thread.
class CSourceAnalyzer {
public:
    /// Describes a source. What cannot be read counts as absent.
    /// @param pReader  borrowed for the call.
    static SourceDescription Describe(IAsyncReader* pReader);
    /// Describes the beginning of a source; without `llLength` and the last timestamps.
    static SourceDescription DescribeBeginning(Bytes beginning);
    /// Takes the last timestamps of the streams from the end of the source.
    /// @return whether every video and audio stream with a first PTS has got a last one.
    static bool TakeLastTimestamps(SourceDescription& description, Bytes end);
};

}  // namespace kest

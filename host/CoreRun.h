#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <span>

#include "demux/FrameInfo.h"
#include "host/Input.h"
#include "host/Stream.h"

namespace kest {

/// Takes one record that the demuxer queued, with its payload. Called on a thread per stream; what it throws
/// ends the run.
using FrameHandler =
    std::function<void(EStream stream, const FRAME_INFO& info, std::span<const std::uint8_t> payload)>;

/// What is played of an input, and how fast.
struct PlayRange {
    double dRate = 1.0;       // one that the demuxer takes
    std::int64_t llFrom = 0;  // byte to begin at
    std::uint64_t nCount =
        std::numeric_limits<std::uint64_t>::max();  // frames after which it ends, at least 1
};

/// Runs the demuxer over the whole input, passes every record of both streams to the handler, the
/// end-of-stream records included, and returns when both streams have ended. Shows progress on a terminal.
/// Throws what the handler threw, and CCommandError when the user interrupted it, the input could not be read
/// to its end or the demuxer could not be run.
///
/// At other rates than 1.0 streams do not end: there the run ends when nothing came for 500 ms and nothing was
/// left to scan.
void RunCore(const Input& input, const FrameHandler& handler, const PlayRange& range = {});

}  // namespace kest

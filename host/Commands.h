// The commands of the program. Each takes its options, prints its result and throws CCommandError when it
// cannot do its work.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace kest {

struct ProbeOptions {
    std::string strFile;
    bool bJson = false;
};
/// Prints what the probe finds out about a file: class, name, bit rate, length, estimated duration.
void RunProbe(const ProbeOptions& options);

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

struct FramesOptions {
    std::string strFile;
    bool bJson = false;
    double dRate = 1.0;               // at which it is played
    std::int64_t llFrom = 0;          // byte to begin at
    std::uint64_t nCount = kNoLimit;  // frames after which the listing ends
};
/// Lists every frame that the demuxer queues, and the record that ends each stream. In order within each
/// stream; the streams interleave as they come.
void RunFrames(const FramesOptions& options);

struct SamplesOptions {
    std::string strFile;
    bool bJson = false;
    std::optional<double> dSeek;      // media time to begin at, seconds
    double dRate = 1.0;               // at which it is played
    std::uint64_t nCount = kNoLimit;  // samples after which the listing ends
    std::string strModule;            // module of the demultiplexer; empty: see LoadDemuxModule
};
/// Lists every sample and every event that leaves the output pins, with its times. In order within each pin;
/// the pins interleave as they come.
void RunSamples(const SamplesOptions& options);

struct DemuxOptions {
    std::string strFile;
    std::string strVideo;  // output name, "-" for standard output; empty: derived from the input's name
    std::string strAudio;
    bool bForce = false;    // overwrite files that exist
    std::string strModule;  // as above
};
/// Writes the payloads of the two elementary streams into a file each.
void RunDemux(const DemuxOptions& options);

/// Has the demultiplexer's module register itself in the user's list of modules.
/// @param strModule  its file; empty: see LoadDemuxModule.
void RunRegister(const std::string& strModule);
/// Removes that module from the list, also when its file is not there any more.
void RunUnregister(const std::string& strModule);

}  // namespace kest

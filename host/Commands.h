// The commands of the program. Each takes its options, prints its result and throws CCommandError when it
// cannot do its work.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "demux/TsVideoClock.h"

namespace kest {

struct ProbeOptions {
    std::string strFile;
    bool bPlain = false;  // every switch of the demultiplexer is off, as in a new filter
    bool bJson = false;
};
/// Prints what the probe finds out about a file: class, name, bit rate, length, estimated duration.
void RunProbe(const ProbeOptions& options);

/// What the commands have in common that demultiplex a stream.
struct StreamOptions {
    std::string strFile;
    bool bPlain = false;  // every switch of the demultiplexer is off, as in a new filter
    bool bQuiet = false;  // neither progress nor a summary
    std::int32_t nVideoStream =
        0;  // stream_id or PID of the stream that is taken; 0: the first of a known type
    std::int32_t nAudioStream = 0;  // the same
    std::string strModule;          // module of the demultiplexer; empty: see LoadDemuxModule
};

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

struct FramesOptions : StreamOptions {
    bool bJson = false;
    ETsTiming timing = ETsTiming::Pes;  // of a transport stream's frames
    double dRate = 1.0;                 // at which it is played
    std::int64_t llFrom = 0;            // byte to begin at
    std::uint64_t nCount = kNoLimit;    // frames after which the listing ends
};
/// Lists every frame that the demuxer queues, and the record that ends each stream when it queues one. In
/// order within each stream; the streams interleave as they come.
void RunFrames(const FramesOptions& options);

struct SamplesOptions : StreamOptions {
    bool bJson = false;
    std::optional<double> dSeek;        // media time to begin at, seconds
    ETsTiming timing = ETsTiming::Pes;  // of a transport stream's samples
    double dRate = 1.0;                 // at which it is played
    std::uint64_t nCount = kNoLimit;    // samples after which the listing ends
};
/// Lists every sample and every event that leaves the output pins, with its times. In order within each pin;
/// the pins interleave as they come.
void RunSamples(const SamplesOptions& options);

struct DemuxOptions : StreamOptions {
    std::string strVideo;  // output name, "-" for standard output; empty: derived from the input's name
    std::string strAudio;
    bool bForce = false;  // overwrite files that exist
    bool bList = false;   // list the streams instead; not with bPlain
};
/// Writes the payloads of the two elementary streams into a file each, and prints how much was written and what was
/// lost. A stream that is not there has no file.
void RunDemux(const DemuxOptions& options);

/// An IPv4 address and a UDP port, as options name them: "127.0.0.1:5000".
struct Destination {
    std::uint32_t dwAddr = 0;  // in network byte order
    std::uint16_t nPort = 0;
};
/// @return nothing for any other text.
std::optional<Destination> ParseDestination(const std::string& strText);
std::string ToText(const Destination& destination);

/// Most KiB of a datagram.
constexpr int kMaxChunkKB = 48;

struct RelayOptions : StreamOptions {
    std::string strTo;                        // see Destination
    std::optional<std::uint16_t> nLocalPort;  // forward to the local view too, at this port
    std::optional<int> nChunkKB;              // KiB of a datagram
    double dSpeed = 1;                        // times the stream's bit rate; 0: as fast as it goes
    bool bDemux = false;                      // demultiplex beside that
};
/// Forwards a stream over UDP through the filter, and prints what was sent.
void RunRelay(const RelayOptions& options);

struct StatusOptions {
    bool bJson = false;
    bool bFollow = false;  // print every change until the filter goes
};
/// Prints the shared status of a running filter.
void RunStatus(const StatusOptions& options);

/// What is empty stays as it is.
struct SetOptions {
    std::string strSending;                   // "on", "off"
    std::optional<std::string> strTo;         // see Destination
    std::optional<std::string> strLocalView;  // "on", "off", or the port, which switches it on
    std::string strDemux;                     // "on", "off"
    std::string strFunction;                  // "pes", "es", "free"
    std::optional<int> nChunkKB;              // KiB of a datagram
    bool operator==(const SetOptions&) const = default;
};
/// Posts new settings to a running filter, and prints whether it has taken them.
void RunSet(const SetOptions& options);

/// Has the demultiplexer's module register itself in the user's list of modules.
/// @param strModule  its file; empty: see LoadDemuxModule.
void RunRegister(const std::string& strModule);
/// Removes that module from the list, also when its file is not there any more.
void RunUnregister(const std::string& strModule);

}  // namespace kest

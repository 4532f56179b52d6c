#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace kest {

/// The two output pins.
enum class EPin { Video, Audio };
constexpr EPin PeerOf(EPin pin) { return pin == EPin::Video ? EPin::Audio : EPin::Video; }

/// Where both streams stand on one line of time, 90 kHz, for the rules of CRobustTimeline. An epoch is a
/// range of the line in which timestamps go on; a jump of the timestamps begins the next.
struct SharedLine {
    /// A position of the line and the timestamp that belongs there.
    struct Place {
        std::int64_t llTimestamp = 0;  // 90 kHz; the low 32 bits count
        std::int64_t llAt = 0;         // of the line

        /// Where another timestamp of the same epoch belongs: the nearest place, so that a wrap is none.
        std::int64_t Find(std::int64_t llOther) const { return llAt + Distance(llTimestamp, llOther); }
        /// Ticks from one timestamp to another, the short way round a counter of 32 bits. That is the counter
        /// of MPEG-1 system streams, and where the one of 33 bits of the others wraps, it wraps too.
        static std::int64_t Distance(std::int64_t llFrom, std::int64_t llTo) {
            return static_cast<std::int32_t>(static_cast<std::uint32_t>(llTo) -
                                             static_cast<std::uint32_t>(llFrom));
        }
        bool operator==(const Place&) const = default;
    };

    struct Epoch {
        Place last;                // of the last frame in it
        std::int64_t llBegin = 0;  // the range of the line that has been reached
        std::int64_t llEnd = 0;
        bool operator==(const Epoch&) const = default;
    };

    struct Stream {
        std::uint32_t nEpoch = 0;  // of the last frame, counted from 1; 0: no frame has been placed
        Place last;                // of the last frame
        std::int64_t llEnd = 0;    // one frame behind it
        std::int64_t llStep = 0;   // from the timestamp before the last one to the last
        bool bContinued = true;    // the last frame went on from the one before it
        bool bEnded = false;       // the end of the stream has come: it is not waited for
        std::optional<std::int64_t> llWaiting{};  // timestamp of a frame that begins or jumps, and waits
        std::int64_t llLead = 0;                  // its presentation less its decoding timestamp
        bool operator==(const Stream&) const = default;
    };

    static constexpr std::uint32_t kEpochs = 4;  // those that are remembered

    Stream& Of(EPin pin) { return aStreams[static_cast<std::size_t>(pin)]; }
    Epoch& Of(std::uint32_t nEpoch) { return aEpochs[nEpoch % kEpochs]; }
    bool Remembers(std::uint32_t nEpoch) const { return nEpoch + kEpochs > nEpochs; }

    std::uint32_t nSegment = 0;            // see TimedFrame
    std::uint32_t nEpochs = 0;             // epochs begun in the segment
    std::array<Epoch, kEpochs> aEpochs{};  // epoch n is the (n modulo kEpochs)th
    std::array<Stream, 2> aStreams{};      // by pin
    bool operator==(const SharedLine&) const = default;
};

}  // namespace kest

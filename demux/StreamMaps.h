#pragma once

#include <array>
#include <cstdint>

#include "demux/BigEndian.h"
#include "demux/ParseSettings.h"

namespace kest {

/// Knows what each stream_id of a program stream carries, and follows the program stream maps in the stream.
///
/// Two tables are kept: the active one classifies, the staged one takes the entries of the next map. A map
/// with current_next_indicator swaps them; the former active table then goes on, with its entries, as the
/// staged one. Used by one thread.
class CStreamMaps {
public:
    /// Categories. An id of the system layer itself stands for itself.
    static constexpr std::uint8_t kIgnore = 0;
    static constexpr std::uint8_t kVideo = 0x50;
    static constexpr std::uint8_t kAudio = 0xA0;

    /// Sets both tables to the defaults: 0xC0 is audio, 0xE0 is video, all else is ignored. No id has been listed.
    /// @param settings  an id that no map has listed is what its number says, 0xC0 to 0xDF audio and 0xE0 to 0xEF
    ///                  video, when it is the stream that was chosen; with bAssumeMap also as long as no map has listed
    ///                  a stream of this kind.
    void InitStreamMaps(const ParseSettings& settings = {});
    /// The category of a stream_id.
    std::uint8_t ClassifyStreamId(std::uint8_t nStreamId) const;
    /// Takes the entries of a program stream map into the staged table. A map whose lengths do not add up
    /// changes nothing.
    /// @param map  its program_stream_map_length bytes (ISO/IEC 13818-1 2.5.4.1).
    void ApplyMap(Bytes map);

    /// stream_type of the audio or video stream that a map listed last; 0 before.
    std::uint8_t GetAudioStreamType() const { return m_nAudioStreamType; }
    std::uint8_t GetVideoStreamType() const { return m_nVideoStreamType; }

private:
    void StageEntry(std::uint8_t nStreamType, std::uint8_t nStreamId);
    void SwapStreamMaps();
    std::uint8_t AssumeCategory(std::uint8_t nStreamId) const;

    std::array<std::uint8_t, 256> m_active{};  // category by stream_id
    std::array<std::uint8_t, 256> m_staged{};  // the table that the next map fills
    std::uint8_t m_nAudioStreamType = 0;       // see GetAudioStreamType
    std::uint8_t m_nVideoStreamType = 0;       // see GetVideoStreamType
    ParseSettings m_settings;                  // see InitStreamMaps
    std::array<bool, 256> m_listed{};          // by stream_id: a map has listed it
    bool m_bAudioListed = false;               // one has listed audio
    bool m_bVideoListed = false;               // and video
};

}  // namespace kest

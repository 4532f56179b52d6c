#include "demux/TsVideoClock.h"

#include <array>
#include <bit>

#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr std::uint64_t kSecond = 27'000'000;
constexpr std::uint64_t kHalfDay = 12 * 3600 * kSecond;
constexpr std::uint64_t kDay = 2 * kHalfDay;
constexpr std::uint64_t kLongDay =
    2'335'132'800'000;                          // of a stream of 29.97 Hz whose time code drops nothing
constexpr std::uint64_t kTimestampTicks = 300;  // of the 27 MHz clock in one of a timestamp's

constexpr std::size_t kCodeSize = 4;    // a start code
constexpr std::size_t kHeaderSize = 8;  // what must be left from a start code on

/// What follows the bits read, from the first whole byte on.
Bytes Behind(Bytes bytes, const CBitReader& reader) { return bytes.last(reader.BitsLeft() / 8); }

/// Goes to the next start code. @return false: too little is left.
bool FindCode(Bytes& rest) {
    const auto nFound = FindStartCodePrefix(rest);
    if (!nFound || *nFound + kHeaderSize > rest.size()) return false;
    rest = rest.subspan(*nFound);
    return true;
}

/// Goes to the next start code of this kind, of which nLeast bytes must be left.
bool FindCode(Bytes& rest, std::uint8_t nCode, std::size_t nLeast = kHeaderSize) {
    const auto nFound = FindStartCode(rest, 0x100u | nCode);
    if (!nFound || *nFound + nLeast > rest.size()) return false;
    rest = rest.subspan(*nFound);
    return true;
}

/// time_code without its pictures, in seconds. @return none: the marker is missing.
std::optional<std::uint64_t> ReadTimeCode(CBitReader& reader) {
    const std::uint64_t nHours = reader.Read(5), nMinutes = reader.Read(6);
    if (!reader.ReadFlag()) return std::nullopt;
    return nHours * 3600 + nMinutes * 60 + reader.Read(6);
}

/// Skips vbv_parameters. @return whether the markers around the used fields are there.
bool SkipVbvParameters(CBitReader& reader) {
    reader.Skip(15);  // first_half_bit_rate
    if (!reader.ReadFlag()) return false;
    reader.Skip(15);  // latter_half_bit_rate
    if (!reader.ReadFlag()) return false;
    reader.Skip(15);  // first_half_vbv_buffer_size
    if (!reader.ReadFlag()) return false;
    reader.Skip(3 + 11 + 1 + 15 + 1);  // latter_half_vbv_buffer_size, the occupancy and its markers
    return true;
}

}  // namespace

void CTsVideoClock::Begin(ETsTiming timing) {
    CTsVideoClock fresh;
    fresh.m_nSeconds = m_nSeconds;
    fresh.m_nDayOffset = m_nDayOffset;
    fresh.m_nGroupTime = m_nGroupTime;
    if (timing == ETsTiming::Pes) fresh.m_audioBase = 0;
    *this = fresh;
}

std::optional<PesTimestamps> CTsVideoClock::Advance(Bytes frame, bool bMpeg4) {
    constexpr std::uint64_t kMpeg4FrameTicks = kSecond / 30;
    const bool bKnown = frame.size() >= kCodeSize && (bMpeg4 ? AdvanceMpeg4(frame) : AdvanceMpeg2(frame));
    if (!bKnown) {
        const std::uint64_t nTicks = bMpeg4 ? kMpeg4FrameTicks : m_nFrameTicks;
        m_nDecode += nTicks;
        m_nPresentation += nTicks;
    }
    if ((bMpeg4 ? m_nResolution : m_nFrameTicks) == 0) return std::nullopt;
    return PesTimestamps{.llPts = static_cast<std::int64_t>(m_nPresentation / kTimestampTicks),
                         .llDts = static_cast<std::int64_t>(m_nDecode / kTimestampTicks)};
}

// ---------------- MPEG-4, ISO/IEC 14496-2

bool CTsVideoClock::AdvanceMpeg4(Bytes frame) {
    const std::uint8_t nCode = frame[3];
    Bytes rest = frame;
    if (nCode != kVop && !ParseMpeg4Headers(rest, nCode)) return false;
    if (!ParseVop(rest)) return false;
    if (nCode <= kLastVideoObjectLayer && !m_audioBase) m_audioBase = m_nPresentation;
    return true;
}

/// Reads what stands in front of the first VOP, and goes there.
bool CTsVideoClock::ParseMpeg4Headers(Bytes& rest, std::uint8_t nCode) {
    if (nCode <= kLastVideoObject) {
        rest = rest.subspan(kCodeSize);
        if (rest.size() < kCodeSize || (Read24(rest, 0) != 1 || (rest[3] & 0xF0) != kLastVideoObject + 1))
            return false;
        nCode = rest[3];
    }
    bool bGroup = nCode == kGroupOfVop;
    if (nCode > kLastVideoObject && nCode <= kLastVideoObjectLayer) {
        CBitReader reader(rest.subspan(kCodeSize));
        if (!ParseVol(reader)) return false;
        rest = Behind(rest, reader);
        if (!FindCode(rest)) return false;
        bGroup = rest[3] == kGroupOfVop;
        if (!bGroup) return true;
    }
    if (!bGroup) return false;
    CBitReader reader(rest.subspan(kCodeSize));
    if (!ParseGov(reader)) return false;
    rest = Behind(rest, reader);
    return FindCode(rest);
}

/// Reads a video object layer behind its start code.
bool CTsVideoClock::ParseVol(CBitReader& reader) {
    constexpr std::uint32_t kExtendedPar = 15;  // aspect_ratio_info
    reader.Skip(1 + 8);                         // random_accessible_vol, video_object_type_indication
    if (reader.ReadFlag()) reader.Skip(4 + 3);  // is_object_layer_identifier: verid and priority
    if (reader.Read(4) == kExtendedPar) reader.Skip(8 + 8);
    if (reader.ReadFlag()) {  // vol_control_parameters
        reader.Skip(2 + 1);   // chroma_format, low_delay
        if (reader.ReadFlag() && !SkipVbvParameters(reader)) return false;
    }
    reader.Skip(2);  // video_object_layer_shape
    if (!reader.ReadFlag()) return false;
    const std::uint32_t nResolution = reader.Read(16);
    if (reader.Failed()) return false;
    m_nResolution = nResolution;
    if (nResolution > 0) m_nIncrementBits = static_cast<unsigned>(std::bit_width(nResolution - 1));
    if (!reader.ReadFlag()) return false;
    if (reader.ReadFlag()) reader.Skip(m_nIncrementBits);  // fixed_vop_rate: fixed_vop_time_increment
    if (!reader.ReadFlag()) return false;
    reader.Skip(13);  // video_object_layer_width
    if (!reader.ReadFlag()) return false;
    reader.Skip(13);  // video_object_layer_height
    return reader.ReadFlag();
}

/// Reads a group of VOPs behind its start code.
bool CTsVideoClock::ParseGov(CBitReader& reader) {
    const auto nSeconds = ReadTimeCode(reader);
    if (!nSeconds || reader.Failed()) return false;
    m_nSeconds = *nSeconds;
    if (kSecond * m_nSeconds + kHalfDay < m_nPresentation) m_nDayOffset += kDay;
    return true;
}

/// Reads a VOP from its start code on and moves to its time.
bool CTsVideoClock::ParseVop(Bytes vop) {
    constexpr std::uint64_t kEncoderSecond = 1000, kRealSecond = 1001;  // ticks that encoders count, and last
    CBitReader reader(vop.subspan(kCodeSize));
    reader.Skip(2);                          // vop_coding_type
    while (reader.ReadFlag()) ++m_nSeconds;  // modulo_time_base
    if (!reader.ReadFlag()) return false;
    const std::uint64_t nIncrement = reader.Read(m_nIncrementBits);
    if (!reader.ReadFlag() || m_nResolution == 0) return false;
    const std::uint64_t nTicks = m_nDayOffset + kSecond * m_nSeconds + nIncrement * kSecond / m_nResolution;
    m_nDecode = m_nPresentation = nTicks * kRealSecond / kEncoderSecond;
    return true;
}

// ---------------- MPEG-2, ISO/IEC 13818-2

bool CTsVideoClock::AdvanceMpeg2(Bytes frame) {
    Bytes rest = frame;
    switch (frame[3]) {
        case kSequenceHeader:
            if (!ParseSequence(rest) || !FindCode(rest, kGroupOfPictures)) return false;
            [[fallthrough]];
        case kGroupOfPictures:
            if (!ParseGroup(rest) || !FindCode(rest, kPicture)) return false;
            [[fallthrough]];
        case kPicture: break;
        default: return false;
    }
    if (!ParsePicture(rest)) return false;
    if (frame[3] == kSequenceHeader && !m_audioBase) m_audioBase = m_nPresentation;
    return true;
}

/// Reads a sequence header and its extension, and goes behind them.
bool CTsVideoClock::ParseSequence(Bytes& rest) {
    constexpr std::array<std::uint32_t, 9> kFrameTicks = {
        // by frame_rate_code, table 6-4
        0, 1'126'125, 1'125'000, 1'080'000, 900'900, 900'000, 540'000, 450'450, 450'000};
    constexpr std::uint32_t k2997 = 4;          // frame_rate_code
    constexpr std::size_t kExtensionSize = 10;  // with its start code
    CBitReader header(rest.subspan(kCodeSize));
    header.Skip(12 + 12 + 4);  // horizontal_size, vertical_size, aspect_ratio_information
    const std::uint32_t nRateCode = header.Read(4);
    header.Skip(18);  // bit_rate
    const bool bMarker = header.ReadFlag();
    header.Skip(10);  // vbv_buffer_size
    if (nRateCode == 0 || nRateCode >= kFrameTicks.size() || !bMarker || header.Failed()) return false;
    rest = Behind(rest, header);
    if (!FindCode(rest, kVideoExtension, kExtensionSize)) return false;

    CBitReader extension(rest.subspan(kCodeSize));
    extension.Skip(3);
    if (!extension.ReadFlag()) return false;                             // of the identifier, 1
    extension.Skip(8 + 1 + 2 + 2 + 2 + 12 + 1 + 8 + 1);                  // up to low_delay
    const std::uint32_t nN = extension.Read(2), nD = extension.Read(5);  // frame_rate_extension
    m_b2997 = nRateCode == k2997 && nN == 0 && nD == 0;
    m_nFrameTicks = std::uint64_t{kFrameTicks[nRateCode]} * (nD + 1) / (nN + 1);
    rest = rest.subspan(kExtensionSize);
    return true;
}

/// Reads a group of pictures from its start code on, and goes behind it.
bool CTsVideoClock::ParseGroup(Bytes& rest) {
    CBitReader reader(rest.subspan(kCodeSize));
    const bool bDrop = reader.ReadFlag();  // drop_frame_flag
    const auto nSeconds = ReadTimeCode(reader);
    const std::uint64_t nPictures = reader.Read(6);
    if (!nSeconds || reader.Failed()) return false;
    m_nGroupTime = kSecond * *nSeconds + nPictures * (m_b2997 ? kSecond / 30 : m_nFrameTicks);
    const bool bSlow = m_b2997 && !bDrop;  // the time code counts 30 pictures a second
    if (bSlow) m_nGroupTime = m_nGroupTime * 3003 / 3000;
    if (m_nGroupTime + kHalfDay < m_nPresentation) m_nDayOffset += bSlow ? kLongDay : kDay;
    rest = Behind(rest, reader);
    return true;
}

/// Reads a picture header from its start code on and moves to its time.
bool CTsVideoClock::ParsePicture(Bytes picture) {
    constexpr std::uint32_t kI = 1, kB = 3;
    CBitReader reader(picture.subspan(kCodeSize));
    const std::uint64_t nReference = reader.Read(10);  // temporal_reference
    const std::uint32_t nType = reader.Read(3);        // picture_coding_type
    if (nType < kI || nType > kB || reader.Failed()) return false;
    m_nPresentation = m_nDayOffset + m_nGroupTime + (nReference + 1) * m_nFrameTicks;
    if (nType == kB) {
        m_nDecode = m_nPresentation;
    } else if (m_nDecode == kNone) {
        m_nDecode = m_nPresentation - m_nFrameTicks;
    } else {
        m_nDecode += m_nFrameTicks;
    }
    return true;
}

}  // namespace kest

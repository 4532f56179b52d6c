#include "demux/VideoHeaders.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "demux/BitReader.h"
#include "demux/Mpeg4Headers.h"
#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

Fraction MakeFraction(std::uint64_t nNumerator, std::uint64_t nDenominator) {
    const std::uint64_t nDivisor = std::gcd(nNumerator, nDenominator);
    if (nDivisor == 0 || nNumerator == 0 || nDenominator == 0) return {};
    return {static_cast<std::uint32_t>(nNumerator / nDivisor),
            static_cast<std::uint32_t>(nDenominator / nDivisor)};
}

void SetSampleAspect(VideoFormat& format, Fraction aspect) {
    format.sampleAspect = aspect;
    format.displayAspect = MakeFraction(std::uint64_t{aspect.nNumerator} * format.nWidth,
                                        std::uint64_t{aspect.nDenominator} * format.nHeight);
}

void SetDisplayAspect(VideoFormat& format, Fraction aspect) {
    format.displayAspect = aspect;
    format.sampleAspect = MakeFraction(std::uint64_t{aspect.nNumerator} * format.nHeight,
                                       std::uint64_t{aspect.nDenominator} * format.nWidth);
}

/// Bytes that headers have at most; what is longer is none.
constexpr std::size_t kMostHeaders = 1024;

/// Where the headers that begin with the bytes end: at the first start code that `goesOn` does not take.
/// @return nothing when it is not there.
template <class GoesOn>
std::optional<std::size_t> FindHeadersEnd(Bytes bytes, GoesOn goesOn) {
    std::optional<std::size_t> nEnd;
    ForEachStartCode(bytes.subspan(kStartCodeSize), [&](std::size_t nIndex, std::uint8_t nCode) {
        if (goesOn(nCode)) return true;
        nEnd = kStartCodeSize + nIndex;
        return false;
    });
    return nEnd;
}

// ---------------- MPEG-1 and MPEG-2, ISO/IEC 11172-2 and 13818-2

/// Fields of a sequence header, parts of which an extension completes.
struct SequenceFields {
    unsigned nWidth = 0, nHeight = 0, nAspectCode = 0, nRateCode = 0;
    std::uint32_t nBitRate = 0, nVbvBufferSize = 0;  // in units of 400 bit/s and of 2048 bytes
};

/// Frame rates by frame_rate_code, table 6-4.
constexpr std::array<Fraction, 9> kFrameRates = {
    {{0, 1}, {24000, 1001}, {24, 1}, {25, 1}, {30000, 1001}, {30, 1}, {50, 1}, {60000, 1001}, {60, 1}}};

std::optional<SequenceFields> ParseSequenceFields(Bytes header) {
    CBitReader reader(header);
    reader.Skip(32);
    SequenceFields fields;
    fields.nWidth = reader.Read(12);
    fields.nHeight = reader.Read(12);
    fields.nAspectCode = reader.Read(4);
    fields.nRateCode = reader.Read(4);
    fields.nBitRate = reader.Read(18);
    const bool bMarker = reader.ReadFlag();
    fields.nVbvBufferSize = reader.Read(10);
    const bool bValid = !reader.Failed() && bMarker && fields.nWidth && fields.nHeight &&
                        fields.nAspectCode && fields.nAspectCode < 15 && fields.nRateCode &&
                        fields.nRateCode < kFrameRates.size();
    return bValid ? std::optional(fields) : std::nullopt;
}

void SetMpeg1Aspect(VideoFormat& format, unsigned nCode) {
    // Height to width of a pixel in 1/10000 by pel_aspect_ratio, ISO/IEC 11172-2 2.4.3.2.
    static constexpr std::array<std::uint16_t, 15> kPixelHeights = {
        0, 10000, 6735, 7031, 7615, 8055, 8437, 8935, 9157, 9815, 10255, 10695, 10950, 11575, 12015};
    SetSampleAspect(format, MakeFraction(10000, kPixelHeights[nCode]));
}

void SetMpeg2Aspect(VideoFormat& format, unsigned nCode) {
    switch (nCode) {  // aspect_ratio_information, table 6-3
        case 1: return SetSampleAspect(format, {1, 1});
        case 2: return SetDisplayAspect(format, {4, 3});
        case 3: return SetDisplayAspect(format, {16, 9});
        case 4: return SetDisplayAspect(format, {221, 100});
        default: break;
    }
}

/// Completes the format by a sequence_extension, 6.2.2.3. @return whether it is one.
bool ParseSequenceExtension(Bytes extension, SequenceFields& fields, VideoFormat& format) {
    constexpr unsigned kSequenceExtensionId = 1;
    CBitReader reader(extension);
    reader.Skip(32);
    if (reader.Read(4) != kSequenceExtensionId) return false;
    format.nProfileLevel = static_cast<std::uint8_t>(reader.Read(8));
    format.bProgressive = reader.ReadFlag();
    reader.Skip(2);  // chroma_format
    fields.nWidth |= reader.Read(2) << 12;
    fields.nHeight |= reader.Read(2) << 12;
    fields.nBitRate |= reader.Read(12) << 18;
    reader.Skip(1);
    fields.nVbvBufferSize |= reader.Read(8) << 10;
    format.bLowDelay = reader.ReadFlag();
    const std::uint32_t nTimes = reader.Read(2) + 1, nParts = reader.Read(5) + 1;
    const Fraction rate = kFrameRates[fields.nRateCode];
    format.frameRate =
        MakeFraction(std::uint64_t{rate.nNumerator} * nTimes, std::uint64_t{rate.nDenominator} * nParts);
    return !reader.Failed();
}

/// Whether the vbv_delay of the first picture in the bytes says that the bit rate is variable.
bool HasVariableRate(Bytes bytes) {
    constexpr std::uint32_t kNoDelay = 0xFFFF;
    const auto nPicture = FindStartCode(bytes, MakeStartCode(kPicture));
    if (!nPicture) return false;
    CBitReader reader(bytes.subspan(*nPicture));
    reader.Skip(32 + 10 + 3);  // start code, temporal_reference, picture_coding_type
    return reader.Read(16) == kNoDelay;
}

/// @param bytes  from the start code of a sequence header on.
std::optional<VideoHeaders> ParseSequence(Bytes bytes) {
    constexpr std::uint32_t kVariable = 0x3FFFF;  // of bit_rate in MPEG-1
    constexpr std::uint64_t kBitRateUnit = 400, kVbvUnit = 2048;
    auto fields = ParseSequenceFields(bytes);
    if (!fields) return std::nullopt;
    const auto nEnd = FindHeadersEnd(bytes, [](std::uint8_t nCode) { return nCode == kVideoExtension; });
    if (!nEnd || *nEnd > kMostHeaders) return std::nullopt;
    const Bytes header = bytes.first(*nEnd);

    VideoHeaders found{.codec = ECodec::Mpeg1Video, .format = {}};
    VideoFormat& format = found.format;
    format.abHeader.assign(header.begin(), header.end());
    format.frameRate = kFrameRates[fields->nRateCode];
    const auto nExtension = FindStartCode(header, MakeStartCode(kVideoExtension));
    if (nExtension && ParseSequenceExtension(header.subspan(*nExtension), *fields, format))
        found.codec = ECodec::Mpeg2Video;
    const bool bMpeg2 = found.codec == ECodec::Mpeg2Video;
    format.nWidth = fields->nWidth;
    format.nHeight = fields->nHeight;
    const std::uint64_t nBitRate = fields->nBitRate == kVariable ? 0 : fields->nBitRate * kBitRateUnit;
    format.nBitRate = static_cast<std::uint32_t>(std::min<std::uint64_t>(nBitRate, UINT32_MAX));
    format.bVariableRate = nBitRate == 0 || HasVariableRate(bytes.subspan(*nEnd));
    format.nVbvBufferSize = static_cast<std::uint32_t>(fields->nVbvBufferSize * kVbvUnit);
    bMpeg2 ? SetMpeg2Aspect(format, fields->nAspectCode) : SetMpeg1Aspect(format, fields->nAspectCode);
    return found;
}

// ---------------- MPEG-4, ISO/IEC 14496-2

Fraction GetMpeg4Aspect(const MPEG4_HEADER_STATE& layer) {
    switch (layer.aspect_ratio_info) {  // table 6-12
        case 1: return {1, 1};
        case 2: return {12, 11};
        case 3: return {10, 11};
        case 4: return {16, 11};
        case 5: return {40, 33};
        case 15: return MakeFraction(layer.par_width, layer.par_height);
        default: return {};
    }
}

/// The rate of a stream that does not say it: by the shortest time between the VOPs that follow the layer.
Fraction MeasureRate(MPEG4_HEADER_STATE layer, Bytes bytes) {
    constexpr int kVops = 32;  // as many are enough
    const std::int64_t nResolution = layer.vop_time_increment_resolution;
    std::int64_t nLast = -1, nShortest = 0;
    int nVops = 0;
    ForEachStartCode(bytes, [&](std::size_t nIndex, std::uint8_t nCode) {
        if (nCode != kVop || ParseVopTime(layer, bytes.subspan(nIndex)) != 0) return true;
        const auto nTime = static_cast<std::int64_t>(layer.nLastIncrement);
        const std::int64_t nAhead = nLast < 0 ? 0 : (nTime - nLast + nResolution) % nResolution;
        const std::int64_t nApart = std::min(nAhead, nResolution - nAhead);  // B pictures go back
        if (nAhead > 0 && (nShortest == 0 || nApart < nShortest)) nShortest = nApart;
        nLast = nTime;
        return ++nVops < kVops;
    });
    return MakeFraction(static_cast<std::uint64_t>(nResolution), static_cast<std::uint64_t>(nShortest));
}

/// @param bytes  from the start code of a video object layer on.
/// @param bytesBefore  the headers directly in front of it.
std::optional<VideoHeaders> ParseLayer(Bytes bytes, Bytes bytesBefore) {
    MPEG4_HEADER_STATE layer;
    layer.nBitRate = layer.nVbvBufferSize = 0;
    if (ParseVol(layer, bytes) != 0 || !layer.video_object_layer_width || !layer.video_object_layer_height)
        return std::nullopt;
    const auto nEnd = FindHeadersEnd(bytes, [](std::uint8_t) { return false; });
    if (!nEnd || *nEnd > kMostHeaders) return std::nullopt;

    constexpr unsigned kBitsPerByte = 8;
    VideoHeaders found{.codec = ECodec::Mpeg4Video, .format = {}};
    VideoFormat& format = found.format;
    format.nWidth = layer.video_object_layer_width;
    format.nHeight = layer.video_object_layer_height;
    format.nBitRate = layer.nBitRate;
    format.nVbvBufferSize = layer.nVbvBufferSize / kBitsPerByte;
    format.bProgressive = !layer.interlaced;
    format.bLowDelay = layer.low_delay != 0;
    if (const Fraction aspect = GetMpeg4Aspect(layer); aspect.IsKnown()) SetSampleAspect(format, aspect);
    format.frameRate = layer.fixed_vop_time_increment
                           ? MakeFraction(layer.vop_time_increment_resolution, layer.fixed_vop_time_increment)
                           : MeasureRate(layer, bytes.subspan(*nEnd));
    const auto nSequence = FindStartCode(bytesBefore, MakeStartCode(kVisualObjectSequence));
    if (nSequence && *nSequence + kStartCodeSize < bytesBefore.size())
        format.nProfileLevel = bytesBefore[*nSequence + kStartCodeSize];
    format.abHeader.assign(bytesBefore.begin(), bytesBefore.end());
    format.abHeader.insert(format.abHeader.end(), bytes.begin(),
                           bytes.begin() + static_cast<std::ptrdiff_t>(*nEnd));
    return found;
}

/// Codes of MPEG-4 headers that stand in front of a video object layer: visual object sequence and visual object.
bool IsMpeg4Header(std::uint8_t nCode) {
    return nCode == kVisualObjectSequence || nCode == kVisualObject || nCode <= kLastVideoObject;
}

bool IsLayer(std::uint8_t nCode) { return nCode > kLastVideoObject && nCode <= kLastVideoObjectLayer; }

}  // namespace

// Two standards share one range of start codes. The codes of layers are those of slices in MPEG-1/2, and that of a
// sequence header is a group of VOPs in MPEG-4. So a layer counts only directly behind the start code of a video object,
// and a sequence header with plausible fields.
std::optional<VideoHeaders> FindVideoHeaders(Bytes bytes) {
    std::optional<VideoHeaders> found;
    std::optional<std::size_t> nHeaders;  // where the headers begin that have come one after the other
    std::size_t nObject = SIZE_MAX;       // where the last video object began
    ForEachStartCode(bytes, [&](std::size_t nIndex, std::uint8_t nCode) {
        if (nCode == kSequenceHeader) found = ParseSequence(bytes.subspan(nIndex));
        if (IsLayer(nCode) && nObject + kStartCodeSize == nIndex) {
            const std::size_t nBegin = nHeaders && nIndex - *nHeaders <= kMostHeaders ? *nHeaders : nObject;
            found = ParseLayer(bytes.subspan(nIndex), bytes.subspan(nBegin, nIndex - nBegin));
        }
        if (nCode <= kLastVideoObject) nObject = nIndex;
        if (!IsMpeg4Header(nCode)) nHeaders.reset();
        if (IsMpeg4Header(nCode) && !nHeaders) nHeaders = nIndex;
        return !found;
    });
    return found;
}

}  // namespace kest

#include "demux/Mpeg4Headers.h"

#include <bit>

#include "demux/BitReader.h"
#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr int kDone = 0;
constexpr int kDamaged = -1;

constexpr unsigned kStartCodeBits = 32;
constexpr std::uint32_t kAspectExtended = 15;   // extended_PAR of table 6-12
constexpr std::uint32_t kBitRateUnit = 400;     // bit/s
constexpr std::uint32_t kVbvSizeUnit = 16384;   // bits
constexpr std::uint64_t kEncoderSecond = 1000;  // ticks that encoders count in a second ...
constexpr std::uint64_t kRealSecond = 1001;     // ... of 1001

bool IsVideoObject(std::uint32_t dwStartCode) { return dwStartCode >= 0x100 && dwStartCode <= 0x11F; }
bool IsVideoObjectLayer(std::uint32_t dwStartCode) { return dwStartCode >= 0x120 && dwStartCode <= 0x12F; }

/// A number in two fields, the upper one 15 bits, each followed by a marker.
std::uint32_t ReadInHalves(CBitReader& reader, unsigned nLatterBits) {
    const std::uint32_t nFirst = reader.Read(15);
    reader.Skip(1);
    const std::uint32_t nLatter = reader.Read(nLatterBits);
    return nFirst << nLatterBits | nLatter;
}

/// vbv_parameters: bit rate, buffer size and occupancy, of which the last is not needed.
void ParseVbv(MPEG4_HEADER_STATE& state, CBitReader& reader) {
    state.nBitRate = ReadInHalves(reader, 15) * kBitRateUnit;
    reader.Skip(1);
    state.nVbvBufferSize = ReadInHalves(reader, 3) * kVbvSizeUnit;
    reader.Skip(11 + 1 + 15 + 1);
}

void ParseLayerKind(MPEG4_HEADER_STATE& state, CBitReader& reader) {
    reader.Skip(1 + 8);                         // random_accessible_vol, video_object_type_indication
    if (reader.ReadFlag()) reader.Skip(4 + 3);  // video_object_layer_verid, _priority
    state.aspect_ratio_info = static_cast<std::uint8_t>(reader.Read(4));
    if (state.aspect_ratio_info == kAspectExtended) {
        state.par_width = static_cast<std::uint8_t>(reader.Read(8));
        state.par_height = static_cast<std::uint8_t>(reader.Read(8));
    }
    if (reader.ReadFlag()) {  // vol_control_parameters
        state.chroma_format = static_cast<std::uint8_t>(reader.Read(2));
        state.low_delay = static_cast<std::uint8_t>(reader.Read(1));
        if (reader.ReadFlag()) ParseVbv(state, reader);
    }
    reader.Skip(2);  // video_object_layer_shape
}

/// Time base and picture size. The markers around the size count only in a stream of fixed rate: encoders
/// without one are lax about them. False: a marker that counts is missing.
bool ParseTimeBaseAndSize(MPEG4_HEADER_STATE& state, CBitReader& reader) {
    reader.Skip(1);
    state.vop_time_increment_resolution = reader.Read(16);
    if (state.vop_time_increment_resolution == 0) return false;
    state.nTimeIncrementBits =
        static_cast<std::uint8_t>(std::bit_width(state.vop_time_increment_resolution - 1));
    reader.Skip(1);
    const bool bFixedRate = reader.ReadFlag();
    if (bFixedRate) state.fixed_vop_time_increment = reader.Read(state.nTimeIncrementBits);
    bool bMarkers = reader.ReadFlag();
    state.video_object_layer_width = static_cast<std::uint16_t>(reader.Read(13));
    bMarkers &= reader.ReadFlag();
    state.video_object_layer_height = static_cast<std::uint16_t>(reader.Read(13));
    bMarkers &= reader.ReadFlag();
    state.interlaced = static_cast<std::uint8_t>(reader.Read(1));
    return bMarkers || !bFixedRate;
}

/// Before a VOP: its predecessor's time becomes the previous time.
void KeepPreviousTime(MPEG4_HEADER_STATE& state) {
    if (state.nPreviousTime == MPEG4_HEADER_STATE::kNoTime) {
        state.nLastSeconds = state.nSeconds;
        state.nPreviousTime = state.nSeconds;
    } else {
        state.nPreviousTime = state.nTime;
    }
}

/// Moves the stream clock to a VOP.
void AdvanceTime(MPEG4_HEADER_STATE& state, std::uint64_t nModuloSeconds, std::uint64_t nIncrement) {
    const std::uint64_t nResolution = state.vop_time_increment_resolution;
    state.nSeconds += nModuloSeconds;
    // An increment that falls back by more than half a second began a new one, said or not.
    if (nIncrement + nResolution / 2 < state.nLastIncrement && state.nSeconds <= state.nLastSeconds) {
        state.nSeconds = state.nLastSeconds + 1;
    }
    const std::uint64_t nTicks =
        state.nSeconds * state.nClockUnit + nIncrement * state.nClockUnit / nResolution;
    state.nLastIncrement = nIncrement;
    state.nLastSeconds = state.nSeconds;
    state.nTime = nTicks * kRealSecond / kEncoderSecond;
}

}  // namespace

int InitHeaderState(MPEG4_HEADER_STATE& state) {
    const MPEG4_HEADER_STATE defaults;
    state.par_width = defaults.par_width;
    state.par_height = defaults.par_height;
    state.chroma_format = defaults.chroma_format;
    state.low_delay = defaults.low_delay;
    state.nBitRate = defaults.nBitRate;
    state.nVbvBufferSize = defaults.nVbvBufferSize;
    state.fixed_vop_time_increment = defaults.fixed_vop_time_increment;
    state.nSeconds = defaults.nSeconds;
    state.nPreviousTime = defaults.nPreviousTime;
    state.nClockUnit = defaults.nClockUnit;
    return kDone;
}

int ParseVol(MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes) {
    CBitReader reader(bytes);
    std::uint32_t dwStartCode = reader.Read(kStartCodeBits);
    if (IsVideoObject(dwStartCode)) dwStartCode = reader.Read(kStartCodeBits);
    if (!IsVideoObjectLayer(dwStartCode)) return kDamaged;

    MPEG4_HEADER_STATE parsed = state;
    ParseLayerKind(parsed, reader);
    if (!ParseTimeBaseAndSize(parsed, reader) || reader.Failed()) return kDamaged;
    state = parsed;
    return kDone;
}

int ParseGov(MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes) {
    CBitReader reader(bytes);
    reader.Skip(kStartCodeBits);
    const std::uint32_t nHours = reader.Read(5);
    const std::uint32_t nMinutes = reader.Read(6);
    reader.Skip(1);
    const std::uint32_t nSeconds = reader.Read(6);
    if (reader.Failed()) return kDamaged;
    state.nSeconds = nHours * 3600 + nMinutes * 60 + nSeconds;
    return kDone;
}

int FrameCodingType(std::span<const std::uint8_t> frame) {
    constexpr unsigned kSprite = 3;
    const auto nVop = FindStartCode(frame, MakeStartCode(kVop));
    if (!nVop || *nVop + 4 >= frame.size()) return -1;
    const unsigned nType = frame[*nVop + 4] >> 6;
    return nType == kSprite ? -1 : static_cast<int>(nType);
}

int ParseVopTime(MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes) {
    CBitReader reader(bytes);
    reader.Skip(kStartCodeBits);
    const std::uint32_t nCodingType = reader.Read(2);
    if (reader.Failed()) return kDamaged;
    KeepPreviousTime(state);
    state.vop_coding_type = static_cast<std::uint8_t>(nCodingType);
    const auto fields = ReadVopFields(state, bytes);
    if (!fields) return kDamaged;
    AdvanceTime(state, fields->nModuloSeconds, fields->vop_time_increment);
    return kDone;
}

std::optional<VopFields> ReadVopFields(const MPEG4_HEADER_STATE& state, std::span<const std::uint8_t> bytes) {
    if (state.vop_time_increment_resolution == 0) return std::nullopt;
    CBitReader reader(bytes);
    reader.Skip(kStartCodeBits);
    VopFields fields = {.vop_coding_type = reader.Read(2)};
    while (reader.ReadFlag()) ++fields.nModuloSeconds;
    if (!reader.ReadFlag()) return std::nullopt;
    fields.vop_time_increment = reader.Read(state.nTimeIncrementBits);
    if (!reader.ReadFlag()) return std::nullopt;  // a reader that has failed gives 0 here too
    return fields;
}

}  // namespace kest

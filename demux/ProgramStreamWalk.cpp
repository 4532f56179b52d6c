#include "demux/ProgramStreamWalk.h"

#include <algorithm>
#include <optional>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"

namespace kest {
namespace {

/// Bytes of a pack header behind its start code, ISO/IEC 13818-1 2.5.3.3 and ISO/IEC 11172-1 2.4.3.2.
std::optional<std::size_t> GetPackHeaderSize(Bytes rest) {
    constexpr std::size_t kMpeg1Size = 8, kMpeg2Size = 10;
    if (rest.size() >= kMpeg1Size && rest[0] >> 4 == 2) return kMpeg1Size;
    if (rest.size() >= kMpeg2Size && rest[0] >> 6 == 1) return kMpeg2Size + (rest[9] & 7U);
    return std::nullopt;
}

/// Bytes of a structure behind its start code, as it says itself; nothing: it is none.
std::optional<std::size_t> GetStructureSize(std::uint8_t nId, Bytes rest) {
    if (nId == kPackHeaderId) return GetPackHeaderSize(rest);
    if (nId == kProgramEndId) return 0;
    if (nId < kSystemHeaderId || rest.size() < 2) return std::nullopt;
    return 2u + Read16(rest, 0);
}

/// A start code may begin here, or zeros in front of one, or the bytes end.
bool MayBeBoundary(Bytes bytes) {
    if (!bytes.empty() && bytes[0] != 0) return false;
    if (bytes.size() > 1 && bytes[1] != 0) return false;
    return bytes.size() <= 2 || bytes[2] <= 1;
}

}  // namespace

void WalkProgramStream(Bytes bytes, ECutOff cutOff,
                       const std::function<bool(const SystemStructure& structure)>& take) {
    bool bInRow = false;  // a structure has ended at the index
    std::size_t nIndex = 0;
    while (const auto nPrefix = FindStartCodePrefix(bytes.subspan(nIndex))) {
        nIndex += *nPrefix;
        if (bytes.size() - nIndex < kStartCodeSize) return;
        bInRow = bInRow && *nPrefix == 0;
        const std::uint8_t nId = bytes[nIndex + 3];
        const Bytes rest = bytes.subspan(nIndex + kStartCodeSize);
        const auto nSize = GetStructureSize(nId, rest);
        if (nSize && *nSize > rest.size() && (bInRow || cutOff == ECutOff::Any)) {
            take({nIndex, nId, rest});
            return;
        }
        bInRow = nSize && *nSize <= rest.size() && MayBeBoundary(rest.subspan(*nSize));
        if (bInRow && !take({nIndex, nId, rest.first(*nSize)})) return;
        nIndex += bInRow ? kStartCodeSize + *nSize : kStartCodePrefixSize;
    }
}

}  // namespace kest

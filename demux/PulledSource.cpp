#include "demux/PulledSource.h"

#include <algorithm>
#include <limits>

namespace kest {
namespace {

constexpr std::int64_t kBlockSize = 16384;
constexpr std::int64_t kMostBlocks = 4;  // of one read; the room of a request takes as many
constexpr std::int64_t kLastPosition = std::numeric_limits<std::int64_t>::max() - kBlockSize;

}  // namespace

std::uint32_t CPulledSource::Fetch(const FetchRequest& request) {
    const std::int64_t llPosition = request.llPosition, llEnd = m_llEnd;
    if (llPosition < 0 || llPosition > kLastPosition) return 0;
    const auto ReadBytes = [&](std::int64_t nLength) {
        return Read(llPosition, request.room.first(static_cast<std::size_t>(nLength)));
    };
    const std::int64_t llRest = llEnd > llPosition ? llEnd - llPosition : 0;
    const std::int64_t llBlocks = std::min(llRest / kBlockSize, kMostBlocks);
    if (llBlocks > 1 && ReadBytes(llBlocks * kBlockSize)) {
        return static_cast<std::uint32_t>(llBlocks * kBlockSize);
    }
    if (ReadBytes(kBlockSize)) return kBlockSize;
    const bool bLast = llRest > 0 && llRest < kBlockSize && llRest >= request.nWanted;
    return bLast && ReadBytes(llRest) ? static_cast<std::uint32_t>(llRest) : 0;
}

bool CPulledSource::Read(std::int64_t llPosition, std::span<std::uint8_t> room) {
    const bool bRead = m_bOpen && m_pReader.load()->SyncRead(llPosition, static_cast<LONG>(room.size()),
                                                             room.data()) == S_OK;
    if (bRead) m_llBytesRead += room.size();
    return bRead;
}

}  // namespace kest

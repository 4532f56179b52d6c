#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "control/SendSettings.h"

namespace kest {

/// Name of the named memory file in which a filter publishes its SHARED_STATUS.
constexpr const char* kSharedStatusName = "KestDemuxFilter.obj";

/// The published status of a filter: 48 bytes, little-endian, read and written by other processes as they
/// are. All zero to begin with, the settings too.
struct SHARED_STATUS {
    std::uint32_t nWorkingMode = 0;  // 0 to 5: the working modes in their order; 6: none
    std::uint32_t nReserved = 0;
    SEND_SETTINGS settings = std::bit_cast<SEND_SETTINGS>(std::array<std::uint8_t, sizeof(SEND_SETTINGS)>{});
    std::uint64_t llReserved = 0;

    friend bool operator==(const SHARED_STATUS&, const SHARED_STATUS&) = default;
};
static_assert(sizeof(SHARED_STATUS) == 48 && std::is_trivially_copyable_v<SHARED_STATUS>);
static_assert(offsetof(SHARED_STATUS, settings) == 8 && offsetof(SHARED_STATUS, llReserved) == 40);
static_assert(std::endian::native == std::endian::little);

}  // namespace kest

// The description of a source as users read it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "demux/SourceDescription.h"

namespace kest {

/// What a container is called, with what there is to know of its map.
std::string GetContainerName(const SourceDescription& description);

/// A line for each stream: kind, id, codec and format.
std::string ListStreams(const SourceDescription& description);

/// Seconds of a number of 90 kHz ticks, with so many decimals.
std::string ToSeconds(std::int64_t llTicks, int nDecimals);

/// Bits per second of the whole source; 0: its length or its duration is not known.
std::int64_t GetBitRate(const SourceDescription& description);

/// The description with the field names and the forms of values of ffprobe's `-show_format -show_streams`, as far as
/// it has them. What is not known has no field.
nlohmann::ordered_json ToJson(const SourceDescription& description, const std::string& strFile);

}  // namespace kest

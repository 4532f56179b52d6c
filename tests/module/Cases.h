// The cases of this program. Each takes the arguments that follow its name, throws CFailure, and returns what
// it has to report (which may be nothing).
#pragma once

#include <span>
#include <string>

namespace kest {

using Arguments = std::span<const std::wstring>;

/// The registered class can be made, and the registry and the mapper describe it as agreed.
/// @param arguments  the module's file.
std::string CheckRegistered(Arguments arguments);
/// Neither the registry nor the mapper know the class.
std::string CheckUnregistered(Arguments arguments);
/// Class objects, and when the module may be unloaded: also after a graph has played or been refused.
/// @param arguments  the module's file, a program stream, files that the filter refuses.
std::string CheckLoading(Arguments arguments);

/// Prints every sample of a file, pin after pin, as `kestdemux samples --json` does.
/// @param arguments  the file, and where to begin (seconds), if anywhere else than at the beginning.
std::string ListSamples(Arguments arguments);
/// Starts and stops a hundred times, in three ways.
/// @param arguments  the file.
std::string CheckStarts(Arguments arguments);
/// Pauses, runs, stops and seeks, and looks at position and samples.
/// @param arguments  the file.
std::string CheckStates(Arguments arguments);
/// The host finds the filter by its merit when it is given a file.
/// @param arguments  the file.
std::string CheckIntelligentConnection(Arguments arguments);
/// The host's audio decoder, where it has one, makes sound of what the audio pin delivers.
/// @param arguments  the file.
std::string CheckAudioDecoder(Arguments arguments);

}  // namespace kest

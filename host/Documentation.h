// Documentation for an installed program, made from its command line: nothing in it is written twice.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>

namespace kest {

/// Writes kestdemux.1, the man page, and kestdemux.bash, which lets bash complete commands, options and values that
/// are one of a few. Throws CCommandError when they cannot be written.
/// @param folder  where the two files go; they are replaced.
void WriteDocumentation(const CLI::App& app, const std::filesystem::path& folder);

}  // namespace kest

// Options that several commands have, and checks of what options are given.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "host/Commands.h"

namespace kest {

/// Adds a command that ends its help with an example.
CLI::App* AddCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample);

/// What a command can read.
enum class EReads { File, FileOrPipe };
/// Adds a command that reads one file.
CLI::App* AddFileCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample,
                         EReads reads, std::string& strFile);

/// --plain.
CLI::Option* AddPlainOption(CLI::App* pCommand, bool& bPlain);
/// --quiet. @param pszWhat  what is left out.
void AddQuietOption(CLI::App* pCommand, bool& bQuiet, const char* pszWhat);
/// --video-stream and --audio-stream. @param pPlain  the option that they do not go with.
void AddChoiceOptions(CLI::App* pCommand, StreamOptions& options, CLI::Option* pPlain);
/// --module.
void AddModuleOption(CLI::App* pCommand, std::string& strModule);
/// --chunk.
void AddChunkOption(CLI::App* pCommand, std::optional<int>& nChunkKB);
/// --rate and --count.
void AddRateOptions(CLI::App* pCommand, double& dRate, std::uint64_t& nCount);
/// --timing.
void AddTimingOption(CLI::App* pCommand, ETsTiming& timing);

/// Checks that an option's value is a number of a range.
CLI::Validator NumberRange(double dMin, double dMax);
/// The same for unsigned numbers; a range of those would take negative ones for large ones.
CLI::Validator WholeNumber(std::int64_t nMin);

}  // namespace kest

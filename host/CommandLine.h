#pragma once

#include <CLI/CLI.hpp>

namespace kest {

/// Makes the command line of the program: its commands with their options, checks, help texts and examples. The
/// command that is parsed runs, and throws what it throws.
///
/// Each command is one function of CommandLine.cpp, a line an option; what several commands share is in
/// SharedOptions.h. The man page and the shell completion follow from it.
void AddCommands(CLI::App& app);

}  // namespace kest

// Where the system's texts go.
//
// Debug texts mark failures and events worth seeing. They go to the debugger output: the system's on Windows;
// elsewhere standard error, when the environment has KEST_DEBUG=1.
// Trace texts mark steps and statistics. They go to the trace hook and are formatted only when a sink is
// there: one that was installed or, elsewhere than on Windows, standard error when the environment has
// KEST_TRACE=1.
//
// Each module has sinks of its own. The environment is looked at once, at a module's first text, and so
// reaches every module that is loaded after it was set.
#pragma once

#include <functional>

namespace kest {

/// Receives one finished text. Called from any thread, one call at a time; a sink must not write texts
/// itself: it would wait for its own end.
using TextSink = std::function<void(const char* pszText)>;

/// Puts a sink in the place of the debugger output; an empty one restores it.
void SetDebugSink(TextSink sink);

/// Installs the sink of the trace hook; an empty one restores what was there at first.
void SetTraceSink(TextSink sink);

/// Whether the trace hook has a sink; for texts that are costly to put together.
bool HasTraceSink();

/// Writes a debug text; printf's format.
[[gnu::format(printf, 1, 2)]] void DebugText(const char* pszFormat, ...);

/// Writes a trace text; printf's format. Costs one load when there is no sink.
[[gnu::format(printf, 1, 2)]] void Trace(const char* pszFormat, ...);

}  // namespace kest

// Where the system's texts go.
//
// Debug texts mark failures and events worth seeing. They go to the debugger output: the system's on Windows,
// elsewhere standard error when the environment has KEST_DEBUG=1.
// Trace texts mark steps and statistics. They go to the trace hook and are formatted only when it has a sink: one that
// was installed or, elsewhere than on Windows, standard error when the environment has KEST_TRACE=1.
//
// Each module has sinks of its own. The environment is read once, at a module's first text, so it reaches every module
// that is loaded after it was set.
#pragma once

#include <functional>

namespace kest {

/// Receives one finished text. It is called from any thread, by several at a time, and with no lock held: it may write
/// texts itself (one of its own kind comes back to it) and set sinks. A call that is under way when the sink is
/// replaced keeps the sink alive and may end after `SetDebugSink` or `SetTraceSink` has returned; a sink therefore
/// shares the ownership of what it uses.
using TextSink = std::function<void(const char* pszText)>;

/// Installs a sink in the place of the debugger output; an empty one restores it.
void SetDebugSink(TextSink sink);

/// Installs the sink of the trace hook; an empty one restores what was there at first.
void SetTraceSink(TextSink sink);

/// Whether the trace hook has a sink; for texts that are costly to put together.
bool HasTraceSink();

/// Writes a debug text; printf's format. Longer texts are cut to 1023 bytes.
[[gnu::format(printf, 1, 2)]] void DebugText(const char* pszFormat, ...);

/// Writes a trace text; printf's format. Costs one load when there is no sink.
[[gnu::format(printf, 1, 2)]] void Trace(const char* pszFormat, ...);

}  // namespace kest

#pragma once

namespace kest {

/// The program was interrupted by a signal; long work looks at it.
bool IsInterrupted();
/// Makes interrupt and termination signals set what `IsInterrupted` tells.
void CatchInterrupts();

}  // namespace kest

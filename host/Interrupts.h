#pragma once

namespace kest {

/// The program was interrupted by a signal; long work looks at it.
bool IsInterrupted();
/// Makes interrupt, termination and hang-up signals set what `IsInterrupted` tells; a second one ends the
/// program at once. A signal that the program was started to ignore stays ignored. System calls that wait are
/// broken off.
void CatchInterrupts();

}  // namespace kest

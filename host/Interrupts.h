#pragma once

namespace kest {

/// The program was interrupted by a signal; long work checks this often.
bool IsInterrupted();
/// Makes `IsInterrupted` true after an interrupt, termination or hang-up signal; a second one ends the
/// program at once. A signal that the program was started to ignore stays ignored. System calls that wait
/// return.
void CatchInterrupts();

}  // namespace kest

#include "host/Interrupts.h"

#include <csignal>
#include <initializer_list>

namespace kest {
namespace {

volatile std::sig_atomic_t g_bInterrupted = 0;

}  // namespace

bool IsInterrupted() { return g_bInterrupted; }

void CatchInterrupts() {
    for (int nSignal : {SIGINT, SIGTERM}) {
        std::signal(nSignal, [](int nCaught) {
            g_bInterrupted = 1;
            std::signal(nCaught, SIG_DFL);  // a second one ends the program at once
        });
    }
}

}  // namespace kest

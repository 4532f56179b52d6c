#include "host/Interrupts.h"

#include <array>
#include <atomic>
#include <csignal>

namespace kest {
namespace {

std::atomic<bool> g_bInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

void OnSignal(int) {
    g_bInterrupted = true;
    for (int nSignal : kSignals) {
        struct sigaction action {};
        if (sigaction(nSignal, nullptr, &action) != 0 || action.sa_handler != OnSignal) continue;
        action.sa_handler = SIG_DFL;
        sigaction(nSignal, &action, nullptr);
    }
}

}  // namespace

bool IsInterrupted() { return g_bInterrupted; }

void CatchInterrupts() {
    for (int nSignal : kSignals) {
        struct sigaction action {};
        if (sigaction(nSignal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
        action = {};
        action.sa_handler = OnSignal;
        sigaction(nSignal, &action, nullptr);  // without SA_RESTART
    }
}

}  // namespace kest

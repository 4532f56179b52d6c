#pragma once

#include "graph/BaseOutputPin.h"
#include "platform/Termination.h"

namespace kest {

/// Runs a step of cleaning up to its end. A thread that is ended by force in it runs the step again, in which no
/// wait throws any more, and ends at its next wait behind it. The step must be repeatable.
template <class Step>
void RunToTheEnd(Step step) noexcept {
    try {
        try {
            step();
        } catch (const CThreadTermination&) {
            const CTerminationHold hold;
            step();
        }
    } catch (...) {  // nobody could make up for it
    }
}

/// A flush downstream for the length of a block, however the block is left: also by a forced end, be it
/// inside the flush's own calls.
class CFlushing {
public:
    explicit CFlushing(CBaseOutputPin& output) : m_output(output) {
        try {
            m_output.DeliverBeginFlush();
        } catch (...) {
            End();
            throw;
        }
    }
    ~CFlushing() { End(); }
    CFlushing(const CFlushing&) = delete;
    CFlushing& operator=(const CFlushing&) = delete;

private:
    void End() noexcept {
        RunToTheEnd([this] { m_output.DeliverEndFlush(); });
    }

    CBaseOutputPin& m_output;
};

}  // namespace kest

#pragma once

#include <exception>
#include <new>
#include <system_error>

#include "platform/Termination.h"
#include "platform/api/Types.h"

namespace kest {

/// Runs the body of an interface method, which nothing but a result code may leave: the caller may be foreign code,
/// built by another compiler. It does not undo what the body has done: a body gives its out-parameters their empty
/// values first, and changes the object when nothing can fail any more.
/// @param body  returns an HRESULT.
/// @return what the body returns; E_OUTOFMEMORY when memory, an event or a thread could not be had; E_ABORT when the
///         calling thread is ended by force in a wait of the body (its next wait throws the termination signal again);
///         E_FAIL for every other exception.
template <class Body>
HRESULT Guard(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::system_error&) {
        return E_OUTOFMEMORY;
    } catch (const CThreadTermination&) {
        return E_ABORT;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace kest

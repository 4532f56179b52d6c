#pragma once

#include <exception>
#include <new>
#include <system_error>

#include "platform/ThreadControl.h"
#include "platform/api/Types.h"

namespace kest {

/// Runs the body of an interface method, which nothing but a result code may leave: the caller may be foreign
/// code, built by another compiler.
/// @param body  returns an HRESULT.
/// @return what the body returns; E_OUTOFMEMORY when memory, an event or a thread could not be had; E_FAIL for
///         another exception; E_ABORT when the calling thread is ended by force in a wait of the body: the
///         thread's next wait outside interface code then ends it.
template <class Body>
HRESULT Guard(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::system_error&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_FAIL;
    } catch (const CThreadTermination&) {
        PostponeTermination();
        return E_ABORT;
    }
}

}  // namespace kest

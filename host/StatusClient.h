#pragma once

#include <cstdint>
#include <optional>

#include "control/SharedStatus.h"
#include "plumbing/NamedMemFile.h"

namespace kest {

/// The shared status record of a running filter, seen from another program or from the filter's own host. It
/// is there as long as a filter or another client has it open. Used by one thread.
class CStatusClient {
public:
    /// Opens the record anew. @return false: no filter of this user is running.
    bool Open();
    /// Gives it back.
    void Close() { m_file.Close(); }

    /// The record as it is now; before a filter has published it, that of a new filter without a working mode.
    /// Nothing when it is not open.
    std::optional<SHARED_STATUS> Read() const;
    /// Posts a record, whose settings the filter takes over when its next input comes.
    /// @param nTimeoutMs  how long an earlier record may be in the way.
    /// @return false: it still is.
    bool Post(const SHARED_STATUS& status, std::uint32_t nTimeoutMs);
    /// Waits until no record is posted. @return false: one still is.
    bool WaitUntilTaken(std::uint32_t nTimeoutMs) const;
    /// Takes back the record that is posted, if there is one.
    void TakeBack();

private:
    CNamedMemFile m_file;
};

}  // namespace kest

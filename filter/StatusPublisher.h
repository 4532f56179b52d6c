#pragma once

#include <cstdint>
#include <optional>

#include "control/SharedStatus.h"
#include "platform/CritSec.h"
#include "plumbing/NamedMemFile.h"

namespace kest {

/// The filter's status as other processes see it under the name of kSharedStatusName, and the settings that they
/// post there.
///
/// All operations may be called from any thread.
class CStatusPublisher {
public:
    /// Publishes under the name, beside others who do; false when the system refuses it. Nothing changes when it
    /// is published already.
    bool Open();
    /// Takes the status away. Others who publish under the name stay.
    void Close() { m_StatusFile.Close(); }

    /// Takes over a status and writes it.
    void Publish(std::uint32_t nWorkingMode, const SEND_SETTINGS& settings);
    /// Takes over a status and posts it as a record, unless one that nobody has taken is there.
    void Post(std::uint32_t nWorkingMode, const SEND_SETTINGS& settings);
    /// Writes the count of bytes sent alone, while the status is published.
    void PublishBytesSent(std::uint64_t llBytesSent);
    /// Takes the settings of a record that somebody has posted; nothing when there is none.
    std::optional<SEND_SETTINGS> TakePosted();

    /// The status that was last taken over.
    SHARED_STATUS Get() const;
    /// Takes a record as another process would. @param status  unchanged when there is none.
    /// @return false: nobody publishes under the name.
    bool TakeRemote(SHARED_STATUS& status);

private:
    SHARED_STATUS Update(std::uint32_t nWorkingMode, const SEND_SETTINGS& settings);
    bool IsPublished() const { return m_StatusFile.IsOpen() && m_StatusFile.IsCreator(); }

    mutable CCritSec m_cs;         // guards m_SharedStatus
    SHARED_STATUS m_SharedStatus;  // see Get
    CNamedMemFile m_StatusFile;    // where the status is published
    CNamedMemFile m_StatusReader;  // what TakeRemote opens
};

}  // namespace kest

#pragma once

#include "platform/api/Interfaces.h"

namespace kest {

/// What a pin needs of the filter that owns it.
class CPinOwner {
public:
    /// The filter, without a reference added.
    virtual IBaseFilter* GetFilter() = 0;
    virtual bool IsStopped() const = 0;
    /// Whether pins may be connected and disconnected now. Asked with the object lock held.
    virtual bool MayChangeConnections() const = 0;

protected:
    ~CPinOwner() = default;
};

}  // namespace kest

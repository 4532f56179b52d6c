#pragma once

#include <stdexcept>

namespace kest {

/// The one exception type of the parsers. Raised inside a demux core's parser, it ends the core's thread: the
/// thread entry of CWorkerThread catches it. It never crosses a module boundary.
class KestException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace kest

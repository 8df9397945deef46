#pragma once

#include "veld/Exception.h"

namespace Veld {

/// A file could not be created or opened, or something that it must hold is missing.
class __attribute__((visibility("default"))) OpenException : public Exception {
public:
    using Exception::Exception;
};

}  // namespace Veld

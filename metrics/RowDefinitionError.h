#pragma once

#include <stdexcept>

namespace Metrics {

/// What is wrong with a row definition, or with the XML that is read by one. `what()` is the whole message.
class RowDefinitionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Metrics

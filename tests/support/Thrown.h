#pragma once

#include <string>

namespace Metrics::Testing {

/// What the error says that an action throws.
template <class Error, class Action>
std::string Thrown(Action action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

}  // namespace Metrics::Testing

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "metrics/manager/Core.h"

namespace Metrics::detail {

// Something that an output has to say. It is noted under the output's lock and told without any lock, since
// the log and the error handler are the host's and may call anything.
struct Notice {
    enum class Kind {
        Error,   // stops the output: log and error handler
        Remark,  // costs a row or an element: log and error handler
        Line,    // log
        Hint,    // log, once of its kind in the life of a manager
    };

    Kind kind;
    std::string text;  // of an error or a remark what the handler gets; the log's line begins with the class
    Core::Hint hint{};
};

using ErrorHandler = std::function<void(const std::string&)>;

// Tells notices in order; `handler` may be null or empty. What the host's functions throw is swallowed. What
// comes up inside an error handler goes to the log only, and what comes up inside the log nowhere, so that
// neither can go round in circles. No lock may be held.
void TellNotices(Core& core, const ErrorHandler* handler, const std::vector<Notice>& notices) noexcept;

}  // namespace Metrics::detail

#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "metrics/Context.h"

namespace WebServer {

#ifdef METRICS_DISABLED

// The METRICS_ macros expand to nothing then; a context is an object, so the program leaves it out itself.
inline constexpr bool kHasMarks = false;

class RequestContext {
  public:
    explicit RequestContext(std::string_view) {}
};

#else

inline constexpr bool kHasMarks = true;

/// One request, from its first line to its answer: until it is destroyed, what this thread marks belongs to
/// it. It is made and destroyed within one handler, so that it never meets another request on its thread, nor
/// a second thread.
class RequestContext {
  public:
    /// Method and path go in as the client sent them, whatever they are: the outputs escape what their format
    /// needs. They are taken before the request is parsed, because the first scope writes the attributes.
    explicit RequestContext(std::string_view requestLine) : context_(Metrics::Context::Root("request")) {
        if (!context_.IsEnabled()) return;  // nobody measures: no text need be built
        const std::string_view method = requestLine.substr(0, requestLine.find(' '));
        requestLine.remove_prefix(std::min(method.size() + 1, requestLine.size()));
        context_.AddAttribute("method", std::string(method));
        context_.AddAttribute("path", std::string(requestLine.substr(0, requestLine.rfind(' '))));
    }

  private:
    Metrics::Context context_;
};

#endif

}  // namespace WebServer

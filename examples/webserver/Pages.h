#pragma once

#include <string>
#include <string_view>

namespace WebServer {

/// What answers a request.
struct Page {
    unsigned status;
    std::string (*render)(
        std::string_view query);  ///< The page; `query` begins with the question mark, if there is one.
};

/// The page of a path and its query.
Page FindPage(std::string_view target);
/// The page that says what was wrong with a request that is not served.
Page ErrorPage(unsigned status);

}  // namespace WebServer

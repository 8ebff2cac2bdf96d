#pragma once

#include <cstdint>
#include <functional>

namespace WebServer {

/// Serves HTTP on 127.0.0.1, on `threads` threads including the calling one, until the process gets SIGINT or
/// SIGTERM. `onListening` is called with the port once connections are accepted; port 0 is chosen by the
/// system. Returns how many requests were answered. Throws std::runtime_error when the port cannot be had.
std::uint64_t Serve(std::uint16_t port, unsigned threads,
                    const std::function<void(std::uint16_t)>& onListening);

}  // namespace WebServer

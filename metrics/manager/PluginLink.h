#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Metrics::detail {

/// Where a server of the connection interface would be. Nothing reads it: the interface is inert.
struct ConnectionDefaults {
    std::string serverAddress = "127.0.0.1";
    std::uint16_t serverPort = 800;
    std::int32_t reserved = 1;
};

/// The entry points of a plug-in that would be told of contexts, scopes and values. No step ever loads a
/// module, so the link always reports that nothing was loaded and is discarded by who made it.
class PluginLink {
  public:
    bool IsLoaded() const { return module_ != nullptr; }

    void Unload() {
        entries_[kUnload]();
        module_ = nullptr;
    }

  private:
    using Entry = void (*)();
    static void Nothing() {}

    static constexpr std::size_t kUnload = 0;
    std::array<Entry, 7> entries_{Nothing, Nothing, Nothing, Nothing, Nothing, Nothing, Nothing};
    void* module_ = nullptr;
};

}  // namespace Metrics::detail

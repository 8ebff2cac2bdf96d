#pragma once

#include <string>
#include <string_view>

// The lines that come of reading a text with a definition, `chunk` bytes at a time. What a limit costs is a
// line among them, an error the last: "! " and the message.
std::string RunRows(std::string_view definition, std::string_view input,
                    std::size_t chunk = std::string_view::npos, bool withHeader = false,
                    char separator = ',');

#pragma once

#include <string>

namespace WordCount {

/// The text with "?" for every byte that is not part of a character XML knows. File names may hold any bytes;
/// a program that wants well-formed XML makes sure that what it puts in is text.
std::string ValidUtf8(std::string text);

}  // namespace WordCount

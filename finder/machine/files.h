// Reading and writing the user's files. What fails throws std::runtime_error with the reason.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Lanscout {

std::string ReadWholeFile(const std::string& path, std::size_t mostBytes);

// Throws unless the file can be written; leaves one that exists as it is.
void CheckWritable(const std::string& path);

// Replaces the file at once: who reads meanwhile sees the former one or the new one.
void WriteWholeFile(const std::string& path, std::string_view text);

}  // namespace Lanscout

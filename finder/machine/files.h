// Reading and writing the user's files. What fails throws std::runtime_error with the reason.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Lanscout {

// A list of 65,536 devices with all that is known of each is smaller.
inline constexpr std::size_t kLongestFileBytes = std::size_t{32} << 20;

std::string ReadWholeFile(const std::string& path, std::size_t mostBytes = kLongestFileBytes);

// Throws unless the file can be written; leaves one that exists as it is.
void CheckWritable(const std::string& path);

// Replaces the file at once: who reads meanwhile, and whoever reads after a failure, sees the
// former one or the new one, whole. Mode and owner stay. Behind a symbolic link it is the file that
// is replaced, not the link. What is no ordinary file (a device, a pipe, and what stands in /dev or
// /proc) is written as it is.
void WriteWholeFile(const std::string& path, std::string_view text);

}  // namespace Lanscout

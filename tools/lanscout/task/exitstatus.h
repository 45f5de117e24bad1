// The exit statuses of the command, and what they say.
#pragma once

namespace Lanscout {

inline constexpr int kExitFound = 0;
inline constexpr int kExitNothingFound = 1;
inline constexpr int kExitWrongUse = 2;
inline constexpr int kExitCouldNotSearch = 3;  // or the result could not be written
inline constexpr int kExitDiffers = 4;

}  // namespace Lanscout

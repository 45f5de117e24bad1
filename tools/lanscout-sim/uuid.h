#pragma once

#include <random>
#include <string>

namespace lansim {

// A version 4 UUID (RFC 4122) drawn from the given generator, so that a seed repeats it.
std::string RandomUuid(std::mt19937_64& random);

}  // namespace lansim

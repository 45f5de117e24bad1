// The error of a run that cannot be set up as its user asked.
#pragma once

#include <stdexcept>
#include <string>

namespace lansim {

// What a user asked for cannot be had; the text says why and what to change.
class SetupError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws a SetupError that says what failed, why (errno), and what to do.
[[noreturn]] void FailWithErrno(const std::string& what, const std::string& advice = "");

}  // namespace lansim

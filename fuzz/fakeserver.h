// The other end of every TCP connection that the program makes: it sends the given bytes and closes
// its side. `connect` itself is defined here, so that the HTTP library's calls come here too.
#pragma once

#include <cstddef>
#include <string_view>

namespace FakeServer {

// The bytes stay the caller's until the next call.
void SetAnswer(std::string_view bytes);

// How many connections were made since SetAnswer.
std::size_t Connections();

// Closes what is still open of our ends.
void CloseAll();

}  // namespace FakeServer

// The dearest replies of at most 4096 bytes that we know, each by name.
#pragma once

#include <string>
#include <vector>

struct WorstXml {
    std::string name;
    std::string text;
    std::string charset;  // what the C library's converter loads for it; empty for none
};

std::vector<WorstXml> AllWorstXml();

// A document, written in another character set and with a declaration that says so (unless the
// first bytes do). Empty where the C library does not know the character set.
std::string InCharset(const std::string& document, const std::string& charset);

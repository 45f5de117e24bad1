// The format `csv`: comma-separated values for a spreadsheet.
#pragma once

#include <memory>
#include <string>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

// RFC 4180, with a heading. What a spreadsheet would take for a formula has an apostrophe in front,
// also behind a semicolon, where some spreadsheets begin a new cell.
std::string CsvDocument(std::span<const Device> devices);

class CsvOutput : public Output {
public:
    explicit CsvOutput(const Means& means) : m_console(means.console) {}
    static std::unique_ptr<Output> Make(const Means& means);

    void EndSearch(const Report& report) override;

private:
    Console& m_console;  // NOLINT: lives as long as the program
};

}  // namespace Lanscout

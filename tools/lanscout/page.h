// The result as one page for a browser.
#pragma once

#include <string>

#include "tools/lanscout/report.h"

namespace LanscoutTool {

// One self-contained HTML document. Its policy lets nothing run or load but what the page itself
// brings; what devices said stands in it as data alone.
std::string PageDocument(const Report& report);

}  // namespace LanscoutTool

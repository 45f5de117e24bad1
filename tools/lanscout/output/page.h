// The result as one page for a browser.
#pragma once

#include <string>

#include "finder/report.h"

namespace Lanscout {

// One self-contained HTML document. Its policy lets nothing run or load but what the page itself
// brings; what devices said stands in it as data alone.
std::string PageDocument(const Report& report);

}  // namespace Lanscout

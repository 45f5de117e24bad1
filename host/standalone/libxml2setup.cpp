#include <libxml/parser.h>

namespace {

// libxml2's own set-up is not safe against two threads that parse for the first time at once. The
// loader runs this before any search thread can exist. The matching clean-up is never called: the
// rest of the process may use libxml2 too.
[[gnu::constructor]] void SetUpLibxml2() {
    xmlInitParser();
}

}  // namespace

#include <libxml/parser.h>

namespace {

// libxml2 sets itself up when it is first used, which is not safe if two threads do so at once. The
// loader runs this before any search thread can exist. The matching clean-up is never called: the
// rest of the process may use libxml2 too.
[[gnu::constructor]] void SetUpLibxml2() {
    xmlInitParser();
}

}  // namespace

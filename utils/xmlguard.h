// A look at an XML document's prolog before the whole of it is parsed.
#pragma once

#include <string_view>

// Whether the document may be parsed: nothing before its root element declares what the parser
// would expand later.
//
// Under 4096 bytes of entity declarations make libxml2 loop for ever, or take gigabytes in the
// parse or when the text of a node is read afterwards; defaulted attributes multiply in the same
// way. SOAP forbids all of them (SOAP 1.2 part 1, section 5: no document type declaration), and no
// device sends them. Looking for "<!DOCTYPE" in the bytes would miss other encodings, and looking
// at the parsed document is too late. So a parser of its own reads the prolog, in any encoding that
// libxml2 knows, and stops at the first such declaration or at the root element, whichever comes
// first. It opens no connection and no file (but the C library's own table for a rare character
// set), and it writes nothing on a thread that HardenXmlOnThisThread has made silent.
//
// A document with a malformed prolog may be refused too; nothing would come of parsing it.
bool IsPrologHarmless(std::string_view document);

// Makes libxml2 silent, and keeps it from loading or expanding anything, on the calling thread and
// on no other: libxml2 keeps these settings per thread. Its default error handler would write up
// to 900 KB to standard error for one malformed reply.
void HardenXmlOnThisThread();

// The prolog guard's verdict against what libxml2 makes of the whole document.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "fuzz/check.h"
#include "utils/xmlguard.h"

namespace {

struct FreeDoc {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using Document = std::unique_ptr<xmlDoc, FreeDoc>;

Document Parse(std::string_view bytes) {
    return Document(xmlParseMemory(bytes.data(), static_cast<int>(bytes.size())));
}

bool HasDefault(const xmlNode* declaration) {
    return declaration->type == XML_ATTRIBUTE_DECL &&
           reinterpret_cast<const xmlAttribute*>(declaration)->defaultValue != nullptr;
}

bool DeclaresNothingThatExpands(const xmlDoc& doc) {
    const xmlDtd* const subset = doc.intSubset;
    for (const xmlNode* node = subset == nullptr ? nullptr : subset->children; node != nullptr;
         node = node->next) {
        if (node->type == XML_ENTITY_DECL || HasDefault(node)) {
            return false;
        }
    }
    return doc.extSubset == nullptr;
}

// Declarations begin with "<!". Without an exclamation mark there are none, as long as the bytes
// are what they look like: no other encoding, declared or seen by its first bytes.
bool CannotDeclareAnything(std::string_view bytes) {
    return bytes.find('!') == std::string_view::npos &&
           bytes.find("encoding") == std::string_view::npos &&
           bytes.find('\0') == std::string_view::npos && bytes.substr(0, 4) != "\x4C\x6F\xA7\x94" &&
           bytes.substr(0, 2) != "\xFE\xFF" && bytes.substr(0, 2) != "\xFF\xFE";
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    HardenXmlOnThisThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (IsPrologHarmless(bytes)) {
        const Document doc = Parse(bytes);
        Check(doc == nullptr || DeclaresNothingThatExpands(*doc),
              "an accepted document declares nothing that expands");
    } else if (CannotDeclareAnything(bytes)) {
        Check(Parse(bytes) == nullptr, "a well-formed document without declarations is accepted");
    }
    return 0;
}

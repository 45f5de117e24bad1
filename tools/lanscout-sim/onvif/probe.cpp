#include "tools/lanscout-sim/onvif/probe.h"

#include <libxml/tree.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include "tools/lanscout-sim/onvif/xmldocument.h"

namespace lansim {
namespace {

// WS-Discovery asks for Probes that fit one frame; ten times that is generous.
constexpr std::size_t kMaxProbeBytes = 16384;
constexpr std::string_view kSoap12Ns = "http://www.w3.org/2003/05/soap-envelope";
constexpr std::string_view kSoap11Ns = "http://schemas.xmlsoap.org/soap/envelope/";

std::optional<ProbeError> ReadTypes(const xmlNode* element, Probe& probe) {
    xmlNode* types = Child(element, kDiscoveryNs, "Types");
    if (types == nullptr) {
        return std::nullopt;
    }
    for (const auto& word : Words(TextOf(types))) {
        const auto name = ResolveName(types, word);
        if (!name) {
            return ProbeError::UnknownPrefix;
        }
        probe.types.push_back(*name);
    }
    return std::nullopt;
}

void ReadScopes(const xmlNode* element, Probe& probe) {
    xmlNode* scopes = Child(element, kDiscoveryNs, "Scopes");
    if (scopes == nullptr) {
        return;
    }
    probe.scopes = Words(TextOf(scopes));
    const std::unique_ptr<xmlChar, decltype(xmlFree)> rule(
        xmlGetNoNsProp(scopes, reinterpret_cast<const xmlChar*>("MatchBy")), xmlFree);
    probe.matchBy = View(rule.get());
}

// What a device does understand of the header blocks that may be marked so.
bool IsUnderstood(const xmlNode* block) {
    constexpr std::array<std::string_view, 7> kAddressing = {
        "Action", "To", "MessageID", "ReplyTo", "From", "FaultTo", "RelatesTo"};
    return Is(block, kDiscoveryNs, "AppSequence") ||
           std::ranges::any_of(kAddressing,
                               [&](auto name) { return Is(block, kAddressingNs, name); });
}

std::string SoapAttribute(xmlNode* block, const char* name) {
    const std::unique_ptr<xmlChar, decltype(xmlFree)> value(
        xmlGetNsProp(block, reinterpret_cast<const xmlChar*>(name),
                     reinterpret_cast<const xmlChar*>(kSoap12Ns.data())),
        xmlFree);
    const auto words = Words(std::string(View(value.get())));
    return words.empty() ? "" : words.front();
}

// SOAP 1.2, 2.4: a block that is meant for this node and must be understood.
bool MustUnderstand(xmlNode* block) {
    const std::string marked = SoapAttribute(block, "mustUnderstand");
    const std::string role = SoapAttribute(block, "role");
    const std::string_view roles = "http://www.w3.org/2003/05/soap-envelope/role/";
    const bool isMeant = role.empty() || role == std::string(roles) + "next" ||
                         role == std::string(roles) + "ultimateReceiver";
    return isMeant && (marked == "1" || marked == "true");
}

bool HasBlockNotUnderstood(const xmlNode* header) {
    for (xmlNode* node = header->children; node != nullptr; node = node->next) {
        if (node->type == XML_ELEMENT_NODE && MustUnderstand(node) && !IsUnderstood(node)) {
            return true;
        }
    }
    return false;
}

std::size_t CountOf(const xmlNode* parent, std::string_view ns, std::string_view name) {
    std::size_t count = 0;
    for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
        count += Is(node, ns, name) ? 1 : 0;
    }
    return count;
}

// The single word in a header block; empty when there is none.
std::string Word(const xmlNode* header, std::string_view name) {
    xmlNode* block = Child(header, kAddressingNs, name);
    const auto words = block == nullptr ? std::vector<std::string>{} : Words(TextOf(block));
    return words.size() == 1 ? words.front() : "";
}

// What a strict device asks of the header beyond its MessageID (WS-Discovery 2005/04, 5.2 and 6.2).
std::optional<ProbeError> CheckHeader(const xmlNode* header, RequestKind kind) {
    for (const auto* name : {"Action", "To", "MessageID"}) {
        if (CountOf(header, kAddressingNs, name) > 1) {
            return ProbeError::RepeatedHeader;
        }
    }
    const std::string action = Word(header, "Action");
    if (action.empty()) {
        return ProbeError::NoAction;
    }
    const auto* wanted = kind == RequestKind::Probe ? "/Probe" : "/Resolve";
    if (action != std::string(kDiscoveryNs) + wanted) {
        return ProbeError::WrongAction;
    }
    if (Word(header, "To").empty()) {
        return ProbeError::NoTo;
    }
    if (HasBlockNotUnderstood(header)) {
        return ProbeError::NotUnderstood;
    }
    return std::nullopt;
}

bool IsKnownRule(const std::string& rule) {
    const std::string prefix = std::string(kDiscoveryNs) + "/";
    return rule.empty() || rule == prefix + "rfc2396" || rule == prefix + "rfc3986" ||
           rule == prefix + "strcmp0" || rule == prefix + "uuid";
}

std::optional<ProbeError> ReadBody(const xmlNode* element, Strictness strictness, Probe& probe) {
    if (probe.kind == RequestKind::Resolve) {
        const xmlNode* reference = Child(element, kAddressingNs, "EndpointReference");
        xmlNode* address = Child(reference, kAddressingNs, "Address");
        const auto words = address == nullptr ? std::vector<std::string>{} : Words(TextOf(address));
        if (words.size() != 1) {
            return ProbeError::OtherMessage;
        }
        probe.endpoint = words.front();
        return std::nullopt;
    }
    if (const auto error = ReadTypes(element, probe)) {
        return error;
    }
    ReadScopes(element, probe);
    if (strictness == Strictness::Strict && !IsKnownRule(probe.matchBy)) {
        return ProbeError::UnknownRule;
    }
    return std::nullopt;
}

std::size_t ElementsIn(const xmlNode* parent) {
    std::size_t count = 0;
    for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
        count += node->type == XML_ELEMENT_NODE ? 1 : 0;
    }
    return count;
}

std::variant<Probe, ProbeError> ReadEnvelope(const xmlNode* root, Strictness strictness) {
    const bool isStrict = strictness == Strictness::Strict;
    const auto soap = Is(root, kSoap12Ns, "Envelope") ? kSoap12Ns : kSoap11Ns;
    if (!Is(root, soap, "Envelope")) {
        return ProbeError::NotSoap;
    }
    if (isStrict && soap == kSoap11Ns) {
        return ProbeError::Soap11;
    }
    const xmlNode* body = Child(root, soap, "Body");
    const xmlNode* element = Child(body, kDiscoveryNs, "Probe");
    Probe probe;
    if (element == nullptr) {
        element = Child(body, kDiscoveryNs, "Resolve");
        probe.kind = RequestKind::Resolve;
    }
    if (element == nullptr || (isStrict && ElementsIn(body) != 1)) {
        return ProbeError::OtherMessage;
    }
    const xmlNode* header = Child(root, soap, "Header");
    probe.messageId = Word(header, "MessageID");
    probe.to = Word(header, "To");
    if (probe.messageId.empty() &&
        (!isStrict || header == nullptr || CountOf(header, kAddressingNs, "MessageID") <= 1)) {
        return ProbeError::NoMessageId;
    }
    if (isStrict) {
        if (const auto error = CheckHeader(header, probe.kind)) {
            return *error;
        }
    }
    if (const auto error = ReadBody(element, strictness, probe)) {
        return *error;
    }
    return probe;
}

}  // namespace

std::string_view NameOf(ProbeError error) {
    constexpr std::array<std::string_view, 17> kNames = {
        "tooLong",     "doctype",       "notXml",  "notSoap",        "otherMessage",
        "noMessageId", "unknownPrefix", "soap11",  "trailingBytes",  "noAction",
        "wrongAction", "noTo",          "wrongTo", "repeatedHeader", "notUnderstood",
        "unknownRule", "repeated"};
    return kNames.at(static_cast<std::size_t>(error));
}

std::variant<Probe, ProbeError> ParseProbe(std::string_view bytes, Strictness strictness) {
    if (bytes.size() > kMaxProbeBytes) {
        return ProbeError::TooLong;
    }
    const XmlDocument document = ParseXml(bytes);
    if (document.hasDoctype) {
        return ProbeError::Doctype;
    }
    const xmlNode* root = document.Root();
    if (root == nullptr) {
        return ProbeError::NotXml;
    }
    if (strictness == Strictness::Strict && document.hasTrailingBytes) {
        return ProbeError::TrailingBytes;
    }
    return ReadEnvelope(root, strictness);
}

}  // namespace lansim

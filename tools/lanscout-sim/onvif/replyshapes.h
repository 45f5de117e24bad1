// The handwriting of several makers, as templates.
#pragma once

#include <array>
#include <string_view>

namespace lansim {

// Prefixes, white space, declaration, order. The texts are format strings. A message is the
// envelope around a body; the body is a list of matches, as in ProbeMatches, or one match alone
// under another name, as in Hello.
struct ReplyShape {
    std::string_view networkPrefix;  // what stands before NetworkVideoTransmitter
    std::string_view devicePrefix;   // what stands before Device
    std::string_view envelope;
    std::string_view relates;
    std::string_view list;
    std::string_view match;
    std::string_view types;
    std::string_view scopes;
    std::string_view xaddrs;
    std::string_view version;
    std::string_view namespaces;  // what the outermost element of the body declares
    bool hasCharacterReferences = false;
    bool hasCdata = false;
};

inline constexpr std::array<ReplyShape, 8> kReplyShapes = {{
    // The C toolkits' way: every namespace on the envelope, all on one line.
    {"dn", "tds",
     R"(<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope" xmlns:SOAP-ENC="http://www.w3.org/2003/05/soap-encoding" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><SOAP-ENV:Header><wsa:MessageID>{message}</wsa:MessageID>{relates}<wsa:To SOAP-ENV:mustUnderstand="true">{to}</wsa:To><wsa:Action SOAP-ENV:mustUnderstand="true">{action}</wsa:Action><d:AppSequence MessageNumber="{number}" InstanceId="{instance}"></d:AppSequence></SOAP-ENV:Header><SOAP-ENV:Body>{body}</SOAP-ENV:Body></SOAP-ENV:Envelope>)",
     "<wsa:RelatesTo>{}</wsa:RelatesTo>", "<d:{name}s>{matches}</d:{name}s>",
     "<d:{name}><wsa:EndpointReference><wsa:Address>{endpoint}</wsa:Address></"
     "wsa:EndpointReference>{types}{scopes}{xaddrs}{version}</d:{name}>",
     "<d:Types{declared}>{names}</d:Types>", "<d:Scopes>{}</d:Scopes>", "<d:XAddrs>{}</d:XAddrs>",
     "<d:MetadataVersion>{}</d:MetadataVersion>", ""},
    // Pretty-printed, short prefixes.
    {"dn", "tds",
     R"(<?xml version="1.0" encoding="utf-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing">
  <s:Header>
    <a:Action s:mustUnderstand="1">{action}</a:Action>
    <a:MessageID>{message}</a:MessageID>{relates}
    <a:To s:mustUnderstand="1">{to}</a:To>
    <b:AppSequence xmlns:b="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/>
  </s:Header>
  <s:Body>{body}
  </s:Body>
</s:Envelope>
)",
     R"(
    <a:RelatesTo>{}</a:RelatesTo>)",
     R"(
    <{name}s{namespaces}>{matches}
    </{name}s>)",
     R"(
      <{name}{namespaces}>
        <a:EndpointReference>
          <a:Address>{endpoint}</a:Address>
        </a:EndpointReference>{types}{scopes}{xaddrs}{version}
      </{name}>)",
     R"(
        <Types{declared}>{names}</Types>)",
     R"(
        <Scopes>{}</Scopes>)",
     R"(
        <XAddrs>{}</XAddrs>)",
     R"(
        <MetadataVersion>{}</MetadataVersion>)",
     R"( xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl")"},
    // Prefixes declared where they are used, single quotes, white space around the lists.
    {"net", "dev",
     "<?xml version='1.0' encoding='UTF-8'?><env:Envelope "
     "xmlns:env='http://www.w3.org/2003/05/soap-envelope'><env:Header><w:MessageID "
     "xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>{message}</"
     "w:MessageID>{relates}<w:To "
     "xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>{to}</w:To><w:Action "
     "xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>{action}</"
     "w:Action><dis:AppSequence xmlns:dis='http://schemas.xmlsoap.org/ws/2005/04/discovery' "
     "InstanceId='{instance}' "
     "MessageNumber='{number}'/></env:Header><env:Body>{body}</env:Body></env:Envelope>",
     "<w:RelatesTo xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>{}</w:RelatesTo>",
     "<dis:{name}s{namespaces}>{matches}</dis:{name}s>",
     "<dis:{name}{namespaces}><w:EndpointReference "
     "xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'><w:Address>{endpoint}</"
     "w:Address></w:EndpointReference>{types}{scopes}{xaddrs}{version}</dis:{name}>",
     "<dis:Types xmlns:net='http://www.onvif.org/ver10/network/wsdl' "
     "xmlns:dev='http://www.onvif.org/ver10/device/wsdl'{declared}>{names}</dis:Types>",
     "<dis:Scopes> {} </dis:Scopes>", "<dis:XAddrs> {} </dis:XAddrs>",
     "<dis:MetadataVersion>{}</dis:MetadataVersion>",
     " xmlns:dis='http://schemas.xmlsoap.org/ws/2005/04/discovery'"},
    // No declaration, CR LF in the bytes' own layout.
    {"tdn", "tds",
     "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" "
     "xmlns:wsadis=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
     "xmlns:wsdd=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
     "xmlns:tdn=\"http://www.onvif.org/ver10/network/wsdl\" "
     "xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">\r\n"
     "<SOAP-ENV:Header>\r\n"
     "<wsadis:MessageID>{message}</wsadis:MessageID>\r\n"
     "{relates}<wsadis:To>{to}</wsadis:To>\r\n"
     "<wsadis:Action>{action}</wsadis:Action>\r\n"
     "<wsdd:AppSequence InstanceId=\"{instance}\" MessageNumber=\"{number}\"/>\r\n"
     "</SOAP-ENV:Header>\r\n"
     "<SOAP-ENV:Body>\r\n"
     "{body}</SOAP-ENV:Body>\r\n"
     "</SOAP-ENV:Envelope>\r\n",
     "<wsadis:RelatesTo>{}</wsadis:RelatesTo>\r\n",
     "<wsdd:{name}s>\r\n"
     "{matches}</wsdd:{name}s>\r\n",
     "<wsdd:{name}>\r\n"
     "<wsadis:EndpointReference><wsadis:Address>{endpoint}</wsadis:Address></"
     "wsadis:EndpointReference>\r\n"
     "{types}{scopes}{xaddrs}{version}</wsdd:{name}>\r\n",
     "<wsdd:Types{declared}>{names}</wsdd:Types>\r\n", "<wsdd:Scopes>{}</wsdd:Scopes>\r\n",
     "<wsdd:XAddrs>{}</wsdd:XAddrs>\r\n", "<wsdd:MetadataVersion>{}</wsdd:MetadataVersion>\r\n",
     ""},
    // Default namespaces throughout, a comment.
    {"dn", "tds",
     R"(<?xml version="1.0"?><!-- discovery --><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><MessageID xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{message}</MessageID>{relates}<To xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{to}</To><Action xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{action}</Action><AppSequence xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/></Header><Body>{body}</Body></Envelope>)",
     R"(<RelatesTo xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{}</RelatesTo>)",
     "<{name}s{namespaces}>{matches}</{name}s>",
     R"(<{name}{namespaces}><EndpointReference xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing"><Address>{endpoint}</Address></EndpointReference>{types}{scopes}{xaddrs}{version}</{name}>)",
     "<Types{declared}>{names}</Types>", "<Scopes>{}</Scopes>", "<XAddrs>{}</XAddrs>",
     "<MetadataVersion>{}</MetadataVersion>",
     R"( xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery")"},
    // A byte order mark, and elements and attributes of the maker's own.
    {"dn", "tds",
     "\xEF\xBB\xBF"
     R"(<?xml version="1.0" encoding="utf-8"?><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><MessageID xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{message}</MessageID>{relates}<To xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{to}</To><Action xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{action}</Action><AppSequence xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/><v:Firmware xmlns:v="urn:velquora:discovery" build="7">2.1.0</v:Firmware></Header><Body>{body}</Body></Envelope>)",
     R"(<RelatesTo xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{}</RelatesTo>)",
     "<{name}s{namespaces}>{matches}</{name}s>", R"(<{name}{namespaces}><EndpointReference xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing"><Address>{endpoint}</Address></EndpointReference>{types}{scopes}{xaddrs}{version}<v:Extension xmlns:v="urn:velquora:discovery" v:state="ready"><v:Serial>VQ-000117</v:Serial><v:XAddrs>http://192.0.2.9/v</v:XAddrs></v:Extension></{name}>)",
     "<Types{declared}>{names}</Types>", "<Scopes>{}</Scopes>", "<XAddrs>{}</XAddrs>",
     "<MetadataVersion>{}</MetadataVersion>",
     R"( xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery")"},
    // CDATA sections, and a rule that the scopes are matched by.
    {"dn", "tds",
     R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><MessageID xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{message}</MessageID>{relates}<To xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{to}</To><Action xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{action}</Action><AppSequence xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/></Header><Body>{body}</Body></Envelope>)",
     R"(<RelatesTo xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{}</RelatesTo>)",
     "<{name}s{namespaces}>{matches}</{name}s>",
     R"(<{name}{namespaces}><EndpointReference xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing"><Address>{endpoint}</Address></EndpointReference>{types}{scopes}{xaddrs}{version}</{name}>)",
     "<Types{declared}>{names}</Types>",
     R"(<Scopes MatchBy="http://schemas.xmlsoap.org/ws/2005/04/discovery/rfc2396"><![CDATA[{}]]></Scopes>)",
     "<XAddrs><![CDATA[{}]]></XAddrs>", "<MetadataVersion>{}</MetadataVersion>",
     R"( xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery")", false, true},
    // Character references where other makers write the character.
    {"dn", "tds",
     R"(<Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><MessageID xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{message}</MessageID>{relates}<To xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{to}</To><Action xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{action}</Action><AppSequence xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/></Header><Body>{body}</Body></Envelope>)",
     R"(<RelatesTo xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{}</RelatesTo>)",
     "<{name}s{namespaces}>{matches}</{name}s>",
     R"(<{name}{namespaces}><EndpointReference xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing"><Address>{endpoint}</Address></EndpointReference>{types}{scopes}{xaddrs}{version}</{name}>)",
     "<Types{declared}>{names}</Types>", "<Scopes>{}</Scopes>", "<XAddrs>{}</XAddrs>",
     "<MetadataVersion>{}</MetadataVersion>",
     R"( xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery")", true},
}};

// A SOAP 1.2 fault, as a device sends that failed to read the Probe.
inline constexpr std::string_view kFaultShape =
    R"(<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header><a:RelatesTo>{relates}</a:RelatesTo><a:Action>http://schemas.xmlsoap.org/ws/2004/08/addressing/fault</a:Action></s:Header><s:Body><s:Fault><s:Code><s:Value>s:Receiver</s:Value></s:Code><s:Reason><s:Text xml:lang="en">Internal error</s:Text></s:Reason></s:Fault></s:Body></s:Envelope>)";

}  // namespace lansim

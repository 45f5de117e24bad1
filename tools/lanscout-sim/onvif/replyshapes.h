// The handwriting of several makers, as templates.
#pragma once

#include <array>
#include <string_view>

namespace lansim {

// How makers write the same message: prefixes, white space, declaration, order. The texts are
// format strings; {matches} is filled with one or more of {match}.
struct ReplyShape {
    std::string_view networkPrefix;  // what stands before NetworkVideoTransmitter
    std::string_view devicePrefix;   // what stands before Device
    std::string_view envelope;
    std::string_view match;
    std::string_view xaddrs;
    std::string_view scopes;
};

inline constexpr std::array<ReplyShape, 5> kReplyShapes = {{
    // The C toolkits' way: every namespace on the envelope, all on one line.
    {"dn", "tds",
     R"(<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope" xmlns:SOAP-ENC="http://www.w3.org/2003/05/soap-encoding" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><SOAP-ENV:Header><wsa:MessageID>{message}</wsa:MessageID><wsa:RelatesTo>{relates}</wsa:RelatesTo><wsa:To SOAP-ENV:mustUnderstand="true">http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:To><wsa:Action SOAP-ENV:mustUnderstand="true">http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</wsa:Action><d:AppSequence MessageNumber="{number}" InstanceId="{instance}"></d:AppSequence></SOAP-ENV:Header><SOAP-ENV:Body><d:ProbeMatches>{matches}</d:ProbeMatches></SOAP-ENV:Body></SOAP-ENV:Envelope>)",
     R"(<d:ProbeMatch><wsa:EndpointReference><wsa:Address>{endpoint}</wsa:Address></wsa:EndpointReference><d:Types>{types}</d:Types>{scopes}{xaddrs}<d:MetadataVersion>1</d:MetadataVersion></d:ProbeMatch>)",
     "<d:XAddrs>{}</d:XAddrs>", "<d:Scopes>{}</d:Scopes>"},
    // Pretty-printed, short prefixes.
    {"dn", "tds",
     R"(<?xml version="1.0" encoding="utf-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing">
  <s:Header>
    <a:Action s:mustUnderstand="1">http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</a:Action>
    <a:MessageID>{message}</a:MessageID>
    <a:RelatesTo>{relates}</a:RelatesTo>
    <a:To s:mustUnderstand="1">http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</a:To>
    <b:AppSequence xmlns:b="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/>
  </s:Header>
  <s:Body>
    <ProbeMatches xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl">{matches}
    </ProbeMatches>
  </s:Body>
</s:Envelope>
)",
     R"(
      <ProbeMatch>
        <a:EndpointReference>
          <a:Address>{endpoint}</a:Address>
        </a:EndpointReference>
        <Types>{types}</Types>{scopes}{xaddrs}
        <MetadataVersion>2</MetadataVersion>
      </ProbeMatch>)",
     "\n        <XAddrs>{}</XAddrs>", "\n        <Scopes>{}</Scopes>"},
    // Prefixes declared where they are used, single quotes, white space around the lists.
    {"net", "dev",
     R"(<?xml version='1.0' encoding='UTF-8'?><env:Envelope xmlns:env='http://www.w3.org/2003/05/soap-envelope'><env:Header><w:MessageID xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>{message}</w:MessageID><w:RelatesTo xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>{relates}</w:RelatesTo><w:To xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</w:To><w:Action xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'>http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</w:Action><dis:AppSequence xmlns:dis='http://schemas.xmlsoap.org/ws/2005/04/discovery' InstanceId='{instance}' MessageNumber='{number}'/></env:Header><env:Body><dis:ProbeMatches xmlns:dis='http://schemas.xmlsoap.org/ws/2005/04/discovery'>{matches}</dis:ProbeMatches></env:Body></env:Envelope>)", R"(<dis:ProbeMatch><w:EndpointReference xmlns:w='http://schemas.xmlsoap.org/ws/2004/08/addressing'><w:Address>{endpoint}</w:Address></w:EndpointReference><dis:Types xmlns:net='http://www.onvif.org/ver10/network/wsdl' xmlns:dev='http://www.onvif.org/ver10/device/wsdl'>{types}</dis:Types>{scopes}{xaddrs}<dis:MetadataVersion>10</dis:MetadataVersion></dis:ProbeMatch>)",
     "<dis:XAddrs> {} </dis:XAddrs>", "<dis:Scopes> {} </dis:Scopes>"},
    // No declaration, CR LF in the bytes' own layout, XAddrs before Scopes.
    {"tdn", "tds",
     "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" "
     "xmlns:wsadis=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
     "xmlns:wsdd=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
     "xmlns:tdn=\"http://www.onvif.org/ver10/network/wsdl\" "
     "xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">\r\n"
     "<SOAP-ENV:Header>\r\n<wsadis:MessageID>{message}</wsadis:MessageID>\r\n"
     "<wsadis:RelatesTo>{relates}</wsadis:RelatesTo>\r\n"
     "<wsadis:To>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsadis:To>\r\n"
     "<wsadis:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</wsadis:Action>"
     "\r\n<wsdd:AppSequence InstanceId=\"{instance}\" MessageNumber=\"{number}\"/>\r\n"
     "</SOAP-ENV:Header>\r\n<SOAP-ENV:Body>\r\n<wsdd:ProbeMatches>\r\n{matches}"
     "</wsdd:ProbeMatches>\r\n</SOAP-ENV:Body>\r\n</SOAP-ENV:Envelope>\r\n",
     "<wsdd:ProbeMatch>\r\n<wsadis:EndpointReference><wsadis:Address>{endpoint}</wsadis:Address>"
     "</wsadis:EndpointReference>\r\n<wsdd:Types>{types}</wsdd:Types>\r\n{xaddrs}{scopes}"
     "<wsdd:MetadataVersion>1</wsdd:MetadataVersion>\r\n</wsdd:ProbeMatch>\r\n",
     "<wsdd:XAddrs>{}</wsdd:XAddrs>\r\n", "<wsdd:Scopes>{}</wsdd:Scopes>\r\n"},
    // Default namespaces throughout, a comment, an empty Header element of its own.
    {"dn", "tds",
     R"(<?xml version="1.0"?><!-- discovery --><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><MessageID xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{message}</MessageID><RelatesTo xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">{relates}</RelatesTo><To xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</To><Action xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</Action><AppSequence xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" InstanceId="{instance}" MessageNumber="{number}"/></Header><Body><ProbeMatches xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery">{matches}</ProbeMatches></Body></Envelope>)",
     R"(<ProbeMatch><EndpointReference xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing"><Address>{endpoint}</Address></EndpointReference><Types>{types}</Types>{scopes}{xaddrs}<MetadataVersion>1</MetadataVersion></ProbeMatch>)",
     "<XAddrs>{}</XAddrs>", "<Scopes>{}</Scopes>"},
}};

// A SOAP 1.2 fault, as a device sends that failed to read the Probe.
inline constexpr std::string_view kFaultShape =
    R"(<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header><a:RelatesTo>{relates}</a:RelatesTo><a:Action>http://schemas.xmlsoap.org/ws/2004/08/addressing/fault</a:Action></s:Header><s:Body><s:Fault><s:Code><s:Value>s:Receiver</s:Value></s:Code><s:Reason><s:Text xml:lang="en">Internal error</s:Text></s:Reason></s:Fault></s:Body></s:Envelope>)";

}  // namespace lansim

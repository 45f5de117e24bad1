// A ProbeMatches reply as devices send it.
#pragma once

#include <string>

// An empty argument leaves the element empty.
inline std::string SampleReply(const std::string& xaddrs, const std::string& scopes) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope")"
           R"( xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing")"
           R"( xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery")"
           R"( xmlns:dn="http://www.onvif.org/ver10/network/wsdl">)"
           "<SOAP-ENV:Header><wsa:MessageID>uuid:2419d68a-2dd2-21b2-a205-ec71db2b6c1f"
           "</wsa:MessageID><wsa:Action>"
           "http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</wsa:Action>"
           "</SOAP-ENV:Header><SOAP-ENV:Body><d:ProbeMatches><d:ProbeMatch>"
           "<wsa:EndpointReference><wsa:Address>urn:uuid:2419d68a-2dd2-21b2-a205-ec71db2b6c1f"
           "</wsa:Address></wsa:EndpointReference><d:Types>dn:NetworkVideoTransmitter</d:Types>"
           "<d:Scopes>" +
           scopes + "</d:Scopes><d:XAddrs>" + xaddrs +
           "</d:XAddrs><d:MetadataVersion>1</d:MetadataVersion>"
           "</d:ProbeMatch></d:ProbeMatches></SOAP-ENV:Body></SOAP-ENV:Envelope>\n";
}

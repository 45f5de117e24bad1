// A search whose inside the tests reach.
#pragma once

#include "utils/wsdiscoverybase.h"

class OpenSearch : public WSDiscoveryBase {
public:
    using WSDiscoveryBase::WSDiscoveryBase;

    using WSDiscoveryBase::AppendCam;
    using WSDiscoveryBase::GenerateProbeMessage;
    using WSDiscoveryBase::GenerateUUID;
    using WSDiscoveryBase::GetMACAddr;
    using WSDiscoveryBase::GetNodeContent;
    using WSDiscoveryBase::GetXmlNodeSet;
    using WSDiscoveryBase::ParseHardwareFromScopes;
    using WSDiscoveryBase::ParsePortFromXAddrs;
    using WSDiscoveryBase::ParseProbeMatchMessage;
    using WSDiscoveryBase::RecvProbeMatchMessage;
    using WSDiscoveryBase::SendProbeMessage;
    using WSDiscoveryBase::SetupSocketParam;
    using WSDiscoveryBase::ThreadFunc;

    using WSDiscoveryBase::m_bRunning;
    using WSDiscoveryBase::m_mutex;
    using WSDiscoveryBase::m_startTime;
    using WSDiscoveryBase::m_strIfName;
    using WSDiscoveryBase::m_strIp;
    using WSDiscoveryBase::m_thread;
    using WSDiscoveryBase::m_timeout;
    using WSDiscoveryBase::m_vecCamInfo;
};

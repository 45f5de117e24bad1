// Finds ONVIF devices on one local IPv4 network with WS-Discovery (OASIS/2005-04 drafts: multicast
// Probe to 239.255.255.250:3702, unicast ProbeMatches back).
#pragma once

#include <pthread.h>

#include <ctime>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

// libxml2's types, so that callers need not have its headers.
using xmlDoc = struct _xmlDoc;
using xmlNode = struct _xmlNode;
using xmlXPathObject = struct _xmlXPathObject;

// One camera in the result list.
struct [[gnu::visibility("default")]] ONVIF_CAM_SEARCH_INFO {
    std::string strProtocol;  // "ONVIF"
    std::string strHardware;  // hardware (model) from the reply's scopes; empty if it has none.
                              // Any bytes a sender likes: escape them before you show them.
    std::string strIp;        // the address that the reply came from, dotted-decimal
    std::string strMac;       // "00:1B:FF:01:02:03", or "N/A" where it could not be found
    int nPort = 0;            // port of the device service; 80 when the reply names none. Taken
                              // from the sender without checks: any 32-bit value.
};

// The caller's record of one result; the same members.
struct [[gnu::visibility("default")]] CAM_SEARCH_INFO {
    std::string strProtocol;
    std::string strHardware;
    std::string strIp;
    std::string strMac;
    int nPort = 0;
};

// Which device type a Probe asks for. Any other int may be passed and is refused.
enum ONVIF_PROBE_TYPE : int {
    ONVIF_PROBE_DEVICE = 0,  // tds:Device (ONVIF Core)
    ONVIF_PROBE_NVT = 1,     // dn:NetworkVideoTransmitter (ONVIF Core)
};

// One WS-Discovery camera search on one local interface. Use, in this order:
//
//     WSDiscoveryBase search("192.168.1.2", 10);
//     if (search.StartSearch() == 0) {
//         while (search.IsRunning()) { ... read CamCountGet() and CamGet(), wait a little ... }
//     }
//     search.StopSearch();
//     std::vector<ONVIF_CAM_SEARCH_INFO> cameras;
//     search.CamAllGet(cameras);
//
// Threads. "Any thread": may be called by any thread at any time between construction and
// destruction. "Owner": by one thread of the caller's at a time, and never by the discovery thread.
// "Discovery thread": the one thread that StartSearch creates; it alone adds to the result list.
//
// A search takes its duration, and then goes on until the network was quiet for 3 seconds. Nothing
// cuts it short. The first results come after the first 3 seconds in which no reply arrives. There
// is one search per address at a time, because its socket is bound to port 3702 of the address; a
// second one ends at once, without results, and says why in the log.
//
// Nothing here throws. A failure is logged where it is found and reported by the result.
class [[gnu::visibility("default")]] WSDiscoveryBase {
public:
    // strIp: the local interface's IPv4 address, dotted-decimal. timeout: the duration of a search
    // in whole seconds; with a negative one there is no search. The caller sees no failure: an
    // address that no interface has is logged here, and makes the search end at once.
    WSDiscoveryBase(std::string strIp, int timeout);

    // Waits for the discovery thread (as StopSearch does), then releases everything. Owner.
    ~WSDiscoveryBase();

    WSDiscoveryBase(const WSDiscoveryBase&) = delete;
    WSDiscoveryBase& operator=(const WSDiscoveryBase&) = delete;

    // Starts the discovery thread. 0 on success; -1 if the thread could not be created, and then
    // IsRunning answers true until the object is destroyed. Does not look for a thread that still
    // runs: call StopSearch between two searches. A further search keeps the records of the former
    // ones and adds only cameras whose address is new. Owner.
    int StartSearch();

    // Waits until the discovery thread has ended, which is when the duration has passed or a send
    // fails; does not shorten the search. Always 0, at once if there is no thread. Owner.
    int StopSearch();

    // Whether a search runs: true from StartSearch until the discovery thread ends. Any thread.
    bool IsRunning();

    // Whether more than the duration has passed, in wall-clock seconds, since the discovery thread
    // began to probe (since 1970 if it has not). Any thread.
    bool IsTimeout();

    // Whether the result list has a record whose strIp is exactly `ip`. Takes no lock: discovery
    // thread, or owner while no search runs.
    bool IsDuplicatedCam(const std::string& ip);

    // The number of records in the result list, which only grows. Any thread.
    int CamCountGet();

    // Copies record `index`, 0 up to CamCountGet() - 1, in the order of finding. 0 on success; -1
    // if `index` is out of range (or memory ran out), and `info` is as it was. Any thread.
    int CamGet(unsigned int index, CAM_SEARCH_INFO& info);

    // Replaces `list` by a copy of the whole result list. Always 0 (should memory run out: -1, and
    // `list` is as it was). Any thread.
    int CamAllGet(std::vector<ONVIF_CAM_SEARCH_INFO> & list);

protected:
    // The discovery thread's body; `arg` is the object. Always returns null.
    static void* ThreadFunc(void* arg);

    // The discovery thread's cycles: Probes, replies, records, until the duration has passed or a
    // send fails.
    [[gnu::visibility("hidden")]] void RunCycles(int sock,
                                                 std::map<std::string, std::string>& replies);

    // Makes a record of each reply whose sender is not in `listed` yet, and adds the sender to it.
    [[gnu::visibility("hidden")]] void ListReplies(std::map<std::string, std::string> & replies,
                                                   std::unordered_set<std::string> & listed);

    // Whether the duration was over so long ago (kOverdueSeconds) that a bounded build ends the
    // search. On the discovery thread of a bounded build by the monotonic clock, which nobody can
    // set; elsewhere by the wall clock.
    bool IsOverdue();

    // Appends one record to the result list, under the lock. Discovery thread.
    void AppendCam(const std::string& ip, const std::string& port, const std::string& hardware,
                   const std::string& mac);

    // The operations below are for the discovery thread. They use nothing of the object but its
    // address and the name of its interface. Those that return int return 0 on success and -1 on
    // failure.

    // Replaces `uuid` by a new random id of 36 characters (RFC 4122 version 4 in form). Reseeds the
    // process-wide rand().
    void GenerateUUID(std::string & uuid);

    // Replaces `message` by a whole Probe; unchanged on failure (unknown type).
    int GenerateProbeMessage(ONVIF_PROBE_TYPE type, std::string & message);

    // Binds the datagram socket to the object's address at port 3702 and gives it a receive timeout
    // of 3 seconds. The socket stays the caller's also on failure.
    int SetupSocketParam(int& sock);

    // Multicasts one Probe as one datagram.
    int SendProbeMessage(int sock, ONVIF_PROBE_TYPE type);

    // Adds the replies that arrive, by sender address and up to their first zero byte, until a
    // receive yields nothing. The first reply of a sender stays.
    void RecvProbeMatchMessage(int sock, std::map<std::string, std::string>& replies);

    // Reads port and hardware from a ProbeMatches reply; each stays as it is where the reply has
    // none. `ip` is the sender, for the log.
    void ParseProbeMatchMessage(const std::string& ip, const std::string& reply, std::string& port,
                                std::string& hardware);

    // Evaluates an XPath expression. 0 when it matched a node; `result` then belongs to the caller.
    // On -1 `result` must not be used: it may point to a freed object.
    int GetXmlNodeSet(xmlDoc * doc, const std::string& xpath, xmlXPathObject*& result);

    // The text of a node and its descendants. On failure empty, or untouched for a null node.
    int GetNodeContent(xmlNode * node, std::string & content);

    // The port of the first http service address in an XAddrs list (WS-Discovery).
    void ParsePortFromXAddrs(const std::string& xaddrs, std::string& port);

    // The value of the first hardware scope in a Scopes list (ONVIF Core, device scopes).
    void ParseHardwareFromScopes(const std::string& scopes, std::string& hardware);

    // The MAC address of a neighbour, from the kernel's ARP cache. If it is not there, runs arping,
    // which takes up to 3 seconds. `mac` is written only on success.
    int GetMACAddr(const std::string& ip, std::string& mac);

    pthread_mutex_t m_mutex;  // guards m_bRunning and m_vecCamInfo
    pthread_t m_thread;       // the discovery thread to be joined; 0: none
    int m_timeout;            // seconds
    bool m_bRunning;          // from StartSearch until the discovery thread ends
    std::time_t m_startTime;  // wall clock when probing began; 0 until then
    std::string m_strIp;      // the local address
    std::string m_strIfName;  // the device that carries it; empty if that is not known
    std::vector<ONVIF_CAM_SEARCH_INFO> m_vecCamInfo;  // in the order of finding
};

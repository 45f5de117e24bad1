// A host that records what the library asks of it and answers as the test says. Every test starts
// with RecordingHost::Reset().
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/sdkfuncdata.h"
#include "host/zellog.h"
#include "host/zelnet.h"

namespace RecordingHost {

struct LogLine {
    int type;
    std::string category;
    std::string level;
    std::string file;
    int line;
    std::string function;
    std::string format;   // as passed
    std::string message;  // formatted
};

// One use of the HTTP client.
struct HttpUse {
    std::string path, host;
    int port = -1;
    std::vector<std::string> init;  // all 13 arguments as text, in order
    int method = -1;
    std::string body, contentType;
    std::vector<int> headerKeys;  // GetHttpContent
    std::vector<int> readSizes;   // ReadData
};

void Reset();

// Attaches a log configuration with category 7 at this level and no process entries. Not while a
// search runs.
void SetLogLevel(int level);

// Safe on any thread.
std::vector<LogLine> LogLines();
std::vector<std::string> LogMessages();

// Runs inside every further ZelPrintf, on its thread.
void SetLogHook(std::function<void(const LogLine&)> hook);

// NetGetCard1
struct NetAsk {
    int result = 1;
    int flag = 1;
    std::string name = "eth7";
};
void SetNetAnswer(const NetAsk& answer);
std::vector<std::string> NetAskedFor();

// KarnExecl: the result, and every run as "path options arg1 arg2 ..."; `during` runs inside.
void SetExecl(int result, std::function<void()> during = nullptr);
std::vector<std::vector<std::string>> ExeclRuns();

// IsSameSubnet and the HTTP client. `read` fills the buffer and returns the count.
void SetSameSubnet(bool same);
std::vector<std::pair<std::string, std::string>> SubnetAsks();
void SetHttp(int sendResult, std::string contentLength, std::function<int(char*, int)> read);
std::vector<HttpUse> HttpUses();
int LiveHttpClients();  // constructed and not yet destroyed

}  // namespace RecordingHost

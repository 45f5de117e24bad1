#include "tests/unit/support/recordinghost.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include "host/karnexec.h"
#include "host/zelstring.h"

namespace RecordingHost {
namespace {

struct State {
    std::mutex mutex;
    std::vector<LogLine> log;
    std::function<void(const LogLine&)> logHook;
    NetAsk net;
    std::vector<std::string> netAsked;
    int execlResult = 0;
    std::function<void()> execlDuring;
    std::vector<std::vector<std::string>> execls;
    bool sameSubnet = true;
    std::vector<std::pair<std::string, std::string>> subnetAsks;
    int sendResult = 0;
    std::string contentLength;
    std::function<int(char*, int)> read;
    std::vector<HttpUse> https;
    int liveClients = 0;
    ZelDbgLogCfg config{};
};

State& Current() {
    static State state;
    return state;
}

// Runs with the state locked.
template <typename Function>
auto Locked(Function function) {
    State& state = Current();
    const std::lock_guard lock(state.mutex);
    return function(state);
}

}  // namespace

void Reset() {
    Locked([](State& state) {
        state.log.clear();
        state.logHook = nullptr;
        state.net = NetAsk();
        state.netAsked.clear();
        state.execlResult = 0;
        state.execlDuring = nullptr;
        state.execls.clear();
        state.sameSubnet = true;
        state.subnetAsks.clear();
        state.sendResult = 0;
        state.contentLength.clear();
        state.read = nullptr;
        state.https.clear();
    });
    g_pDbgLogCfg = nullptr;
    g_DbgLogPid = 0;
}

void SetLogLevel(int level) {
    ZelDbgLogCfg& config = Current().config;
    config = {};
    config.aCategLevel[LOG_CATEG_DISCOVERY] = level;
    g_pDbgLogCfg = &config;
}

std::vector<LogLine> LogLines() {
    return Locked([](State& state) { return state.log; });
}

std::vector<std::string> LogMessages() {
    std::vector<std::string> messages;
    for (const LogLine& line : LogLines()) {
        messages.push_back(line.message);
    }
    return messages;
}

void SetLogHook(std::function<void(const LogLine&)> hook) {
    Locked([&](State& state) { state.logHook = std::move(hook); });
}

void SetNetAnswer(const NetAsk& answer) {
    Locked([&](State& state) { state.net = answer; });
}

std::vector<std::string> NetAskedFor() {
    return Locked([](State& state) { return state.netAsked; });
}

void SetExecl(int result, std::function<void()> during) {
    Locked([&](State& state) {
        state.execlResult = result;
        state.execlDuring = std::move(during);
    });
}

std::vector<std::vector<std::string>> ExeclRuns() {
    return Locked([](State& state) { return state.execls; });
}

void SetSameSubnet(bool same) {
    Locked([&](State& state) { state.sameSubnet = same; });
}

std::vector<std::pair<std::string, std::string>> SubnetAsks() {
    return Locked([](State& state) { return state.subnetAsks; });
}

void SetHttp(int sendResult, std::string contentLength, std::function<int(char*, int)> read) {
    Locked([&](State& state) {
        state.sendResult = sendResult;
        state.contentLength = std::move(contentLength);
        state.read = std::move(read);
    });
}

std::vector<HttpUse> HttpUses() {
    return Locked([](State& state) { return state.https; });
}

int LiveHttpClients() {
    return Locked([](State& state) { return state.liveClients; });
}

}  // namespace RecordingHost

using RecordingHost::Current;
using RecordingHost::Locked;
using RecordingHost::State;

ZelDbgLogCfg* g_pDbgLogCfg = nullptr;
int g_DbgLogPid = 0;

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap() {
    (*this)[LOG_LEVEL_ERROR] = "level-one";
    (*this)[LOG_LEVEL_NOTICE] = "level-three";
    (*this)[LOG_LEVEL_INFO] = "level-four";
}

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap() {
    (*this)[LOG_CATEG_DISCOVERY] = "category-seven";
}

void ZelPrintf(LOG_TYPE type, const char* category, const char* level, const char* file, int line,
               const char* function, const char* format, ...) {
    char message[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    const RecordingHost::LogLine entry{type, category, level,  file,
                                       line, function, format, message};
    const auto hook = Locked([&](State& state) {
        state.log.push_back(entry);
        return state.logHook;
    });
    if (hook) {
        hook(entry);
    }
}

int SDKFuncData::NetGetCard1(const std::string& strIp, _tag_NETINFO_& info) {
    return Locked([&](State& state) {
        state.netAsked.push_back(strIp);
        memset(&info, 0xA5, sizeof(info));  // what the library must not read
        info.bUsable = state.net.flag;
        state.net.name.copy(info.szName, sizeof(info.szName) - 1);
        info.szName[std::min(state.net.name.size(), sizeof(info.szName) - 1)] = '\0';
        return state.net.result;
    });
}

int KarnExecl(const char* path, int options, ...) {
    std::vector<std::string> run{path, std::to_string(options)};
    va_list arguments;
    va_start(arguments, options);
    while (const char* argument = va_arg(arguments, const char*)) {
        run.emplace_back(argument);
    }
    va_end(arguments);
    const auto [result, during] = Locked([&](State& state) {
        state.execls.push_back(run);
        return std::pair(state.execlResult, state.execlDuring);
    });
    if (during) {
        during();
    }
    return result;
}

std::string DecodingSpaces(const std::string& text) {
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool space = text.compare(at, 3, "%20") == 0;
        decoded += space ? ' ' : text[at];
        at += space ? 2 : 0;
    }
    return decoded;
}

std::string Trim(const std::string& text, const char* characters) {
    const std::size_t first = text.find_first_not_of(characters);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(characters) - first + 1);
}

bool IsSameSubnet(const std::string& a, const std::string& b) {
    return Locked([&](State& state) {
        state.subnetAsks.emplace_back(a, b);
        return state.sameSubnet;
    });
}

struct ZelNet::ZelHttpClient::Impl {
    std::size_t nUse = 0;  // index into the recorded uses
};

namespace {

RecordingHost::HttpUse& UseOf(State& state, std::size_t index) {
    return state.https.at(index);
}

const char* Text(bool value) {
    return value ? "true" : "false";
}

}  // namespace

ZelNet::ZelHttpClient::ZelHttpClient() : m_pImpl(std::make_unique<Impl>()) {
    Locked([this](State& state) {
        m_pImpl->nUse = state.https.size();
        state.https.emplace_back();
        ++state.liveClients;
    });
}

ZelNet::ZelHttpClient::~ZelHttpClient() {
    Locked([](State& state) { --state.liveClients; });
}

void ZelNet::ZelHttpClient::Init(std::string path, std::string host, int port, std::string user,
                                 std::string password, int timeoutSeconds, bool option1,
                                 bool option2, bool option3, HTTP_VERSION version,
                                 std::string option4, bool option5, bool option6) {
    Locked([&](State& state) {
        RecordingHost::HttpUse& use = UseOf(state, m_pImpl->nUse);
        use.path = path;
        use.host = host;
        use.port = port;
        use.init = {path,
                    host,
                    std::to_string(port),
                    user,
                    password,
                    std::to_string(timeoutSeconds),
                    Text(option1),
                    Text(option2),
                    Text(option3),
                    std::to_string(version),
                    option4,
                    Text(option5),
                    Text(option6)};
    });
}

int ZelNet::ZelHttpClient::SendRequest(ZEL_HTTP_METHOD method, std::string body,
                                       const std::string& contentType) {
    return Locked([&](State& state) {
        RecordingHost::HttpUse& use = UseOf(state, m_pImpl->nUse);
        use.method = method;
        use.body = body;
        use.contentType = contentType;
        return state.sendResult;
    });
}

void ZelNet::ZelHttpClient::GetHttpContent(HTTP_MAP_KEY key, std::string& value) const {
    Locked([&](State& state) {
        UseOf(state, m_pImpl->nUse).headerKeys.push_back(key);
        value = state.contentLength;
    });
}

int ZelNet::ZelHttpClient::ReadData(char* buf, int size) {
    const auto read = Locked([&](State& state) {
        UseOf(state, m_pImpl->nUse).readSizes.push_back(size);
        return state.read;
    });
    return read ? read(buf, size) : 0;
}

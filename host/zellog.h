// What the server provides for logging: the printer, the shared configuration record and the
// texts of the log enums. Declarations only; the server, or host/standalone/, defines them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

// Any int is a valid value of each of the three. The named values are those that the library uses
// and the levels between them. Their visibility is spelled out because a template instantiated for
// a hidden type is hidden too, and the map inside Enum2String must be one per process.
enum [[gnu::visibility("default")]] LOG_TYPE : int{
    LOG_TYPE_DEFAULT = 0,
};

enum [[gnu::visibility("default")]] LOG_CATEG : int{
    LOG_CATEG_DISCOVERY = 7,
};

// A larger number is a more detailed line.
enum [[gnu::visibility("default")]] LOG_LEVEL : int{
    LOG_LEVEL_ERROR = 1,
    LOG_LEVEL_WARNING = 2,
    LOG_LEVEL_NOTICE = 3,
    LOG_LEVEL_INFO = 4,
};

// One process's own level. The entries follow the record, see ZelDbgLogCfg::nProcCount.
struct ZelDbgLogProc {
    std::int32_t nPid;
    std::int32_t nLevel;
};

// The shared debug-log configuration record, in host byte order. The server lays it out, owns it
// and may change it at any time, also from another process.
struct ZelDbgLogCfg {
    std::int32_t nReserved;         // a field of the server's own; the library does not read it
    std::int32_t aCategLevel[512];  // the level of LOG_CATEG k stands at index k
    std::int32_t nProcCount;        // ZelDbgLogProc entries right behind the record; <= 0: none
};
static_assert(offsetof(ZelDbgLogCfg, aCategLevel) == 4);
static_assert(offsetof(ZelDbgLogCfg, nProcCount) == 2052);
static_assert(sizeof(ZelDbgLogCfg) == 2056);
static_assert(sizeof(ZelDbgLogProc) == 8);

extern ZelDbgLogCfg* g_pDbgLogCfg;  // null: no configuration attached
extern int g_DbgLogPid;             // this process's id; 0: not known yet

// Prints one line. `format` ends in "\n". Any thread may call it.
void ZelPrintf(LOG_TYPE type, const char* category, const char* level, const char* file, int line,
               const char* function, const char* format, ...) __attribute__((format(printf, 7, 8)));

// The texts of enum T by value. The constructor fills them in; it is defined by the host for
// LOG_LEVEL and LOG_CATEG and for no other type.
template <typename T>
class [[gnu::visibility("default")]] ZelEnum2StrMap : public std::map<T, const char*> {
public:
    ZelEnum2StrMap();
};
template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap();
template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap();

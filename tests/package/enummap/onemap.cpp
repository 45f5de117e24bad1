// However many shared objects use Enum2String, each enum has one map: its constructor, which is
// this program's, runs once.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>

#include "log/dbglog.h"
#include "utils/wsdiscoverybase.h"

namespace {
int levelMaps = 0;
int categoryMaps = 0;
int linesPrinted = 0;
}  // namespace

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap() {
    ++levelMaps;
    insert({{LOG_LEVEL_ERROR, "error of the test"}});
}

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap() {
    ++categoryMaps;
    insert({{LOG_CATEG_DISCOVERY, "discovery of the test"}});
}

void ZelPrintf(LOG_TYPE, const char*, const char*, const char*, int, const char*, const char*,
               ...) {
    ++linesPrinted;
}

namespace {

using Lookup = const char* (*)(int);

struct CloseModule {
    void operator()(void* module) const { dlclose(module); }
};

class Module {
public:
    explicit Module(const char* path) : m_pModule(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}

    const char* Text(const char* function, int value) const {
        const auto lookup =
            m_pModule ? reinterpret_cast<Lookup>(dlsym(m_pModule.get(), function)) : nullptr;
        return lookup != nullptr ? lookup(value) : dlerror();
    }

private:
    std::unique_ptr<void, CloseModule> m_pModule;
};

TEST(Enum2StringMap, IsOnePerProcessAcrossSharedObjects) {
    const Module plain(MODULE_PLAIN);
    const Module hiddenInlines(MODULE_HIDDEN_INLINES);
    const Module hidden(MODULE_HIDDEN);
    for (const Module* module : {&plain, &hiddenInlines, &hidden}) {
        EXPECT_STREQ(module->Text("LevelText", LOG_LEVEL_ERROR), "error of the test");
        EXPECT_STREQ(module->Text("LevelText", 99), "unknown");
        EXPECT_STREQ(module->Text("CategoryText", LOG_CATEG_DISCOVERY), "discovery of the test");
    }
    EXPECT_STREQ(Enum2String(LOG_LEVEL_ERROR), "error of the test");

    const WSDiscoveryBase logsInTheLibrary("address that no interface has", 0);
    EXPECT_GT(linesPrinted, 0);

    EXPECT_EQ(levelMaps, 1);
    EXPECT_EQ(categoryMaps, 1);
}

}  // namespace

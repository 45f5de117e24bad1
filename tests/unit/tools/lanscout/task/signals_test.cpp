#include "tools/lanscout/task/signals.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

using namespace Lanscout;
using std::chrono::milliseconds;

namespace {

bool IsReadable(const Signals& signals) {
    pollfd entry{signals.Fd(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

void RaiseWithoutDescriptors() {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    const SystemSignals signals;
    raise(SIGTERM);
    _exit(0);
}

}  // namespace

TEST(Signals, EachOfThreeEndsTheProgramsWork) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SystemSignals signals;
        EXPECT_FALSE(IsReadable(signals));
        raise(signal);
        EXPECT_TRUE(IsReadable(signals));
        EXPECT_FALSE(signals.Interrupted()) << "not before it is taken";
        signals.Take();
        EXPECT_TRUE(signals.Interrupted()) << signal;
        EXPECT_FALSE(signals.TakeHangup());
    }
}

TEST(Signals, HangupIsCollectedWhereItMeansSomethingElse) {
    SystemSignals signals(SystemSignals::Hangup::IsCollected);
    raise(SIGHUP);
    signals.Take();
    EXPECT_FALSE(signals.Interrupted());
    EXPECT_TRUE(signals.TakeHangup());
    EXPECT_FALSE(signals.TakeHangup()) << "once";
    raise(SIGTERM);
    signals.Take();
    EXPECT_TRUE(signals.Interrupted());
}

TEST(Signals, ResizedAndResumedProgramsGoOn) {
    SystemSignals signals;
    raise(SIGWINCH);
    signals.Take();
    EXPECT_FALSE(signals.TakeResumed());
    raise(SIGCONT);
    signals.Take();
    EXPECT_TRUE(signals.TakeResumed());
    EXPECT_FALSE(signals.TakeResumed()) << "once";
    EXPECT_FALSE(signals.Interrupted());
}

TEST(Signals, WhatTheParentIgnoresStaysIgnored) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, SIG_IGN);
        {
            SystemSignals signals;
            raise(signal);
            signals.Take();
            EXPECT_FALSE(signals.Interrupted()) << signal;
        }
        std::signal(signal, SIG_DFL);
    }
}

TEST(Signals, WaitEndsWhenOneCame) {
    SystemSignals signals;
    raise(SIGTERM);
    const auto start = std::chrono::steady_clock::now();
    signals.WaitFor(milliseconds(60000));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    signals.Take();
}

TEST(Signals, WithoutADescriptorForThemTheyEndTheProgramAsUsual) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP()
        << "the undefined behaviour sanitizer needs a descriptor itself to look at objects";
#endif
    EXPECT_EXIT(RaiseWithoutDescriptors(), testing::KilledBySignal(SIGTERM), "");
}

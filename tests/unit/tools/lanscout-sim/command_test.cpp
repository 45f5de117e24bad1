#include "tools/lanscout-sim/command.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include "tools/lanscout-sim/base/setuperror.h"

using lansim::Command;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace {

// Waits for the child itself, without taking its status away.
int StatusOf(Command& command) {
    siginfo_t info{};
    waitid(P_ALL, 0, &info, WEXITED | WNOWAIT);
    return command.ExitStatus().value_or(-1);
}

TEST(SimCommand, StatusIsTheProgramsOwn) {
    Command command({"sh", "-c", "exit 7"}, "10.99.0.1");
    EXPECT_EQ(StatusOf(command), 7);
}

TEST(SimCommand, ProgramLearnsTheAddressToSearchFrom) {
    Command command({"sh", "-c", "test \"$LANSCOUT_SIM_ADDRESS\" = 10.99.0.1"}, "10.99.0.1");
    EXPECT_EQ(StatusOf(command), 0);
}

TEST(SimCommand, DeathBySignalIsReportedAsAShellDoes) {
    Command command({"sh", "-c", "kill -TERM $$"}, "10.99.0.1");
    EXPECT_EQ(StatusOf(command), 128 + SIGTERM);
}

TEST(SimCommand, RunningProgramHasNoStatusAndEndsWhenAskedTo) {
    Command command({"sh", "-c", "exec cat /dev/zero > /dev/null"}, "10.99.0.1");
    EXPECT_FALSE(command.ExitStatus());
    command.Signal(SIGTERM);
    EXPECT_EQ(StatusOf(command), 128 + SIGTERM);
}

TEST(SimCommand, MissingProgramIsNamed) {
    EXPECT_THAT([] { Command({"/nowhere/program"}, "10.99.0.1"); },
                ThrowsMessage<lansim::SetupError>(
                    HasSubstr("cannot run /nowhere/program: No such file or directory")));
}

}  // namespace

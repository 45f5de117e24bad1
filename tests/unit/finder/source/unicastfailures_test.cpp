#include "finder/source/unicastfailures.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <variant>

using namespace Lanscout;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t kAddress = 0x0A140005;  // 10.20.0.5

// The one message that is sent, if any.
std::optional<Message> Told(const UnicastFailures& failures, std::size_t asked, bool nothingElse) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    Sender sender(ends[1]);
    failures.Tell(asked, nothingElse, sender);
    std::string text(65536, '\0');
    const ssize_t count = read(ends[0], text.data(), text.size());
    close(ends[0]);
    close(ends[1]);
    if (count <= 0) {
        return std::nullopt;
    }
    return DecodeMessage({text.data(), static_cast<std::size_t>(count) - 1});
}

}  // namespace

TEST(UnicastFailures, NoneIsNothingToTell) {
    EXPECT_FALSE(Told({}, 10, true));
}

TEST(UnicastFailures, AllOfThemAreAFailure) {
    UnicastFailures failures;
    failures.Note(kAddress, ENETUNREACH);
    failures.Note(kAddress + 1, ENETUNREACH);
    const auto told = Told(failures, 2, true);
    ASSERT_TRUE(told && std::holds_alternative<FailureMessage>(*told));
    const auto& failure = std::get<FailureMessage>(*told);
    EXPECT_EQ(failure.target, Target());
    EXPECT_EQ(failure.what,
              "2 of 2 addresses cannot be asked, the first of them 10.20.0.5: there is no route");
    EXPECT_THAT(failure.remedy, HasSubstr("ip route get 10.20.0.5"));
}

TEST(UnicastFailures, SomeOfThemAreANotice) {
    UnicastFailures failures;
    failures.Note(kAddress, EPERM);
    failures.Note(kAddress, EPERM);  // of another try
    const auto told = Told(failures, 254, true);
    ASSERT_TRUE(told && std::holds_alternative<NoticeMessage>(*told));
    EXPECT_THAT(std::get<NoticeMessage>(*told).what, HasSubstr("1 of 254 addresses"));
    EXPECT_THAT(std::get<NoticeMessage>(*told).remedy, HasSubstr("firewall"));
}

TEST(UnicastFailures, BesideASearchTheyAreANotice) {
    UnicastFailures failures;
    failures.Note(kAddress, ENETUNREACH);
    const auto told = Told(failures, 1, false);
    ASSERT_TRUE(told && std::holds_alternative<NoticeMessage>(*told));
    EXPECT_EQ(std::get<NoticeMessage>(*told).what, "10.20.0.5 cannot be asked: there is no route");
}

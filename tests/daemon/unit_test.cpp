// SPDX-License-Identifier: Apache-2.0
// The service unit that is installed, and the platform file that it names.
#include <sstream>

#include "small_server.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> words_of_start() {
    std::ifstream unit(UNIT_FILE);
    constexpr std::string_view key = "ExecStart=";
    std::vector<std::string> words;
    for (std::string line; std::getline(unit, line);) {
        if (!line.starts_with(key)) continue;
        std::istringstream command(line.substr(key.size()));
        for (std::string word; command >> word;) words.push_back(word);
    }
    return words;
}

bool takes_ipmi() { return IPMI_IS_BUILT != 0; }

TEST(Unit, StartsTheInstalledProgramWithTheInstalledPlatformFile) {
    const std::vector<std::string> words = words_of_start();

    ASSERT_THAT(words, testing::SizeIs(5));
    EXPECT_EQ(words[0], INSTALLED_PROGRAM);
    EXPECT_EQ(words[4], "bmc=" INSTALLED_PLATFORM_FILE);
}

TEST(Unit, ThePlatformFileLeadsToTheDriverOfTheMachinesOwnBmc) {
    if (!takes_ipmi()) GTEST_SKIP() << "the IPMI platform is not built";
    if (std::filesystem::exists("/dev/ipmi0")) GTEST_SKIP() << "this machine has a BMC";
    std::vector<std::string> arguments = words_of_start();
    ASSERT_THAT(arguments, testing::SizeIs(5));
    arguments.erase(arguments.begin());
    arguments.back() = "bmc=" PLATFORM_FILE;

    DaemonProcess daemon(arguments);

    constexpr int exit_no_platform = 3;
    EXPECT_EQ(daemon.wait(), exit_no_platform);
    EXPECT_THAT(daemon.output(), AllOf(HasSubstr("/dev/ipmi0"), Not(HasSubstr("bmc.json"))));
}

}  // namespace
}  // namespace vpdd::test

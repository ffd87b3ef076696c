// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <unistd.h>

#include "host/images/fru_image.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

std::string good_fru(const ScratchFolder& folder) {
    return folder.file("good.bin", images::FruImage().board({.manufacturer = "ACME"}).build());
}

TEST(Usage, HelpTeachesWithExamplesAndExitCodes) {
    const Outcome outcome = vpdctl({"--help"});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("inventory"), HasSubstr("spd"), HasSubstr("fru"), HasSubstr("Examples:"),
                                   HasSubstr("Exit codes:"), HasSubstr("  4  ")));
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(Usage, EachCommandHasHelpWithAnExample) {
    for (const std::string command :
         {"inventory", "machine", "status", "log", "history", "watch", "firmware", "property", "slots", "spd", "fru"}) {
        const Outcome outcome = vpdctl({command, "--help"});

        EXPECT_EQ(outcome.code, exit_ok) << command;
        EXPECT_THAT(outcome.out, AllOf(HasSubstr("--json"), HasSubstr("Examples:\n  vpdctl " + command)));
    }
}

TEST(Usage, VersionNamesTheProgram) {
    const Outcome outcome = vpdctl({"--version"});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_EQ(outcome.out, "vpdctl " VPDCTL_VERSION "\n");
}

TEST(Usage, WithoutACommandIsWrongAndSaysSoOnStandardError) {
    const Outcome outcome = vpdctl({});

    EXPECT_EQ(outcome.code, exit_usage);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: a command is missing\nTry 'vpdctl --help'.\n");
}

TEST(Usage, UnknownCommandsAndOptionsAreWrong) {
    EXPECT_EQ(vpdctl({"frobnicate"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"fru", "--frobnicate", "file"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"fru", "one", "two"}).code, exit_usage);
}

TEST(Usage, WhatIsNotKnownIsNamedWithTheHelpThatKnowsMore) {
    EXPECT_EQ(vpdctl({"SPD", "d4"}).err, "vpdctl: unknown command SPD\nTry 'vpdctl --help'.\n");
    EXPECT_EQ(vpdctl({"", "d4"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"spd", "--bogus"}).err, "vpdctl: unknown option --bogus\nTry 'vpdctl spd --help'.\n");
    EXPECT_EQ(vpdctl({"spd", "file", "--bogus=3"}).err, "vpdctl: unknown option --bogus=3\nTry 'vpdctl spd --help'.\n");
    EXPECT_EQ(vpdctl({"fru", "one", "two", "three"}).err,
              "vpdctl: unexpected argument two\nTry 'vpdctl fru --help'.\n");
    EXPECT_EQ(vpdctl({"spd"}).err, "vpdctl: FILE is required\nTry 'vpdctl spd --help'.\n");
    EXPECT_EQ(vpdctl({"--bogus", "spd"}).err, "vpdctl: unknown option --bogus\nTry 'vpdctl --help'.\n");
}

TEST(Usage, AFlagTakesNoValue) {
    const ScratchFolder folder;
    for (const std::string value : {"3", "false", "true", ""}) {
        const Outcome outcome = vpdctl({"fru", good_fru(folder), "--json=" + value});

        EXPECT_EQ(outcome.code, exit_usage) << value;
        EXPECT_THAT(outcome.out, IsEmpty());
        EXPECT_EQ(outcome.err, "vpdctl: --json takes no value\nTry 'vpdctl fru --help'.\n");
    }
}

TEST(Usage, AnEmptyValueIsWrong) {
    const std::string server = server_file("ddr3-small");

    EXPECT_EQ(vpdctl({"inventory", "--server", ""}).err,
              "vpdctl: --server: must not be empty\nTry 'vpdctl inventory --help'.\n");
    EXPECT_EQ(vpdctl({"slots", "--server", server, "--svg", ""}).code, exit_usage);
    EXPECT_EQ(vpdctl({"status", "--server", server, "--state", ""}).code, exit_usage);
    EXPECT_EQ(vpdctl({"spd", ""}).code, exit_usage);
    EXPECT_EQ(vpdctl({"spd", "file", "--log", ""}).code, exit_usage);
}

TEST(Usage, AMissingArgumentIsNamed) {
    const Outcome file = vpdctl({"spd"});
    const Outcome server = vpdctl({"simulate", "pull", "1", "--state", "s"});

    EXPECT_EQ(file.code, exit_usage);
    EXPECT_THAT(file.err, HasSubstr("FILE is required"));
    EXPECT_EQ(server.code, exit_usage);
    EXPECT_THAT(server.err, HasSubstr("--server is required"));
}

TEST(Usage, AnEscapeSequenceAmongTheArgumentsIsNotEchoedRaw) {
    EXPECT_TRUE(is_harmless(vpdctl({"\x1b[2J"}).err));
    EXPECT_TRUE(is_harmless(vpdctl({"fru", "\x1b[2J"}).err));
    EXPECT_TRUE(is_harmless(vpdctl({"inventory", "--server", "\x1b[2J"}).err));
}

class UnusableImage : public testing::TestWithParam<const char*> {};

TEST_P(UnusableImage, MissingFileIsNamed) {
    const Outcome outcome = vpdctl({GetParam(), "/nonexistent/image"});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: /nonexistent/image: cannot open: No such file or directory\n");
}

TEST_P(UnusableImage, FolderIsRefused) {
    const Outcome outcome = vpdctl({GetParam(), "/"});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_EQ(outcome.err, "vpdctl: /: is a directory, not an image\n");
}

TEST_P(UnusableImage, EmptyFileIsRefused) {
    const ScratchFolder folder;
    const std::string path = folder.file("empty", std::string_view());

    const Outcome outcome = vpdctl({GetParam(), path});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_EQ(outcome.err, "vpdctl: " + path + ": the file is empty\n");
}

TEST_P(UnusableImage, UnreadableFileIsRefused) {
    if (geteuid() == 0) GTEST_SKIP() << "root may read everything";
    const ScratchFolder folder;
    const std::string path = folder.file("secret", std::string_view("secret"));
    std::filesystem::permissions(path, std::filesystem::perms::none);

    EXPECT_EQ(vpdctl({GetParam(), path}).code, exit_bad_input);
}

TEST_P(UnusableImage, MoreThan64KibibytesAreRefused) {
    const ScratchFolder folder;
    const std::string path = folder.file("large", std::vector<uint8_t>(64 * 1024 + 1, 1));

    const Outcome outcome = vpdctl({GetParam(), path});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("larger than 64 KiB"));
}

TEST_P(UnusableImage, AnEndlessFileIsRefused) { EXPECT_EQ(vpdctl({GetParam(), "/dev/zero"}).code, exit_bad_input); }

TEST_P(UnusableImage, TooFewBytesAreRefused) {
    const ScratchFolder folder;
    const std::string path = folder.file("short", std::vector<uint8_t>(7, 1));

    const Outcome outcome = vpdctl({GetParam(), path});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("7 bytes are too few"));
}

INSTANTIATE_TEST_SUITE_P(Command, UnusableImage, testing::Values("spd", "fru"),
                         [](const auto& test) { return std::string(test.param); });

TEST(Output, ThatCannotBeWrittenIsAFailure) {
    const ScratchFolder folder;

    EXPECT_EQ(vpdctl_into("/dev/full", {"fru", good_fru(folder)}), exit_failure);
}

TEST(Output, HeadingsAreBoldOnATerminalOnly) {
    const ScratchFolder folder;
    const std::string fru = good_fru(folder);

    EXPECT_THAT(vpdctl_on_terminal({"fru", fru}, 100).out, HasSubstr("\x1b[1mBoard\x1b[0m"));
    EXPECT_THAT(vpdctl({"fru", fru}).out, testing::Not(HasSubstr("\x1b")));
}

TEST(Output, NoColorMakesATerminalPlain) {
    const ScratchFolder folder;
    const std::string fru = good_fru(folder);

    EXPECT_THAT(vpdctl_on_terminal({"fru", fru}, 100, {{"NO_COLOR", "1"}}).out, testing::Not(HasSubstr("\x1b[1m")));
    EXPECT_THAT(vpdctl_on_terminal({"fru", fru}, 100, {{"NO_COLOR", ""}}).out, HasSubstr("\x1b[1m"));
    EXPECT_THAT(vpdctl_on_terminal({"fru", fru}, 100, {{"TERM", "dumb"}}).out, testing::Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace vpdd::test

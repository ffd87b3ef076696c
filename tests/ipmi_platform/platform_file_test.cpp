// SPDX-License-Identifier: Apache-2.0
// Platform files and options that are wrong; no BMC is asked.
#include <gmock/gmock.h>

#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::HasSubstr;

Outcome inventory(const ScratchFolder& folder, const std::string& text) {
    return vpdctl({"inventory", "--bmc", folder.file("bmc.json", text)});
}

void expect_refused(const std::string& text, const std::string& reason) {
    const ScratchFolder folder;
    const Outcome outcome = inventory(folder, text);
    EXPECT_EQ(outcome.code, exit_bad_input) << text;
    EXPECT_THAT(outcome.err, HasSubstr(reason));
    EXPECT_THAT(outcome.err, HasSubstr("bmc.json: "));
}

TEST(PlatformFileCheck, NamesThePlaceOfAFault) {
    expect_refused("{", "line 1, column 2");
    expect_refused("{}", "must have \"bmc\"");
    expect_refused(R"({"bmc": {}})", "/bmc: must have \"host\"");
    expect_refused(R"({"bmc": {"host": "h", "colour": 1}})", "/bmc/colour: unknown");
    expect_refused(R"({"bmc": {"host": "h", "port": 70000}})", "/bmc/port: must be at most 65535");
    expect_refused(R"({"bmc": {"host": "h", "cipher_suite": 99}})", "/bmc/cipher_suite: must be one of");
    expect_refused(R"({"bmc": {"host": "h", "interface": "serial"}})", "/bmc/interface: must be one of");
}

TEST(PlatformFileCheck, WhatTheBmcHasIsNotDescribed) {
    expect_refused(R"({"bmc": {"host": "h"}, "frus": []})", "/frus: comes from the BMC");
    expect_refused(R"({"bmc": {"host": "h"}, "sensors": []})", "/sensors: comes from the BMC");
}

TEST(PlatformFileCheck, APasswordThatOthersMayReadIsRefused) {
    const ScratchFolder folder;
    folder.file("password", std::string_view("secret"));
    std::filesystem::permissions(folder.path("password"), std::filesystem::perms{0644});

    const Outcome outcome = inventory(folder, R"({"bmc": {"host": "127.0.0.1", "password_file": "password"}})");

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("others may read the password"));
    EXPECT_THAT(outcome.err, testing::Not(HasSubstr("secret")));
}

TEST(PlatformFileCheck, AMissingFileIsNamed) {
    const Outcome outcome = vpdctl({"inventory", "--bmc", "/nonexistent/bmc.json"});

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, HasSubstr("/nonexistent/bmc.json"));
}

TEST(PlatformOptions, ContradictionsAreWrongUsage) {
    EXPECT_EQ(vpdctl({"inventory", "--platform", "ipmi"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"inventory", "--platform", "host", "--bmc", "f"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"inventory", "--server", "ddr5-2s", "--bmc", "f"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"inventory", "--platform", "bluetooth"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"fru", "--fru-id", "3"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"fru", "--fru-id", "256", "--bmc", "f"}).code, exit_usage);
    EXPECT_EQ(vpdctl({"fru"}).code, exit_usage);
}

TEST(PlatformOptions, AMissingDeviceIsSaid) {
    const ScratchFolder folder;
    const Outcome outcome = inventory(folder, R"({"bmc": {"interface": "local", "device": "/nonexistent/ipmi0"}})");

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.err, HasSubstr("BMC /nonexistent/ipmi0: "));
}

TEST(PlatformOptions, AFruOfADescribedServerCanBeRead) {
    const Json fru = vpdctl_json({"fru", "--fru-id", "0", "--server", server_file("ddr5-2s")});

    EXPECT_EQ(fru["Header"]["Checksum"], "Ok");
}

}  // namespace
}  // namespace vpdd::test

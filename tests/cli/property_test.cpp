// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A server with these properties.
std::string server_with(const ScratchFolder& folder, const std::string& properties, const std::string& access = "{}") {
    return folder.file("server.json", std::string_view(R"({"name": "one", "machine": {}, "frus": [], "properties": )" +
                                                       properties + R"(, "property_access": )" + access + "}"));
}

const std::string values = R"({"v2": {"name": "node 7", "mac": [2, 0, 94, 1, 2, 255], "text": "a\u001b[2Jb",
                               "fw": {"a": {"version": "1.02"}, "id": "X"}, "empty": ""}})";

TEST(Property, IsItsValueInALine) {
    const ScratchFolder folder;
    const Outcome outcome = vpdctl({"property", "/v2/name", "--server", server_with(folder, values)});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_EQ(outcome.out, "node 7\n");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(Property, ThatIsUnprintableIsHexadecimal) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, values);

    EXPECT_EQ(vpdctl({"property", "/v2/mac", "--server", server}).out, "02 00 5E 01 02 FF\n");
    EXPECT_EQ(vpdctl({"property", "/v2/text", "--server", server}).out, "61 1B 5B 32 4A 62\n");
}

TEST(Property, InJsonIsAValueOrBytes) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, values);

    EXPECT_EQ(vpdctl_json({"property", "/v2/name", "--server", server}),
              (Json{{"Path", "/v2/name"}, {"Value", "node 7"}}));
    EXPECT_EQ(vpdctl_json({"property", "/v2/mac", "--server", server}),
              (Json{{"Path", "/v2/mac"}, {"Bytes", "02 00 5E 01 02 FF"}}));
}

TEST(Property, ThatThereIsNotIsSaidOnStandardError) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, values);

    for (const std::string path : {"/v2/none", "/v2", "/v2/empty"}) {
        const Outcome outcome = vpdctl({"property", path, "--server", server});
        EXPECT_EQ(outcome.code, exit_incomplete);
        EXPECT_THAT(outcome.out, IsEmpty());
        EXPECT_EQ(outcome.err, "vpdctl: there is no property " + path + " with a value\n");
    }
}

TEST(Property, OfAControllerThatDoesNotAnswerIsAFailure) {
    const ScratchFolder folder;
    const std::string server =
        server_with(folder, values, R"({"faults": [{"path": "/v2/name", "completion_code": "0xC3"}]})");

    const Outcome outcome = vpdctl({"property", "/v2/name", "--server", server});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_EQ(outcome.err, "vpdctl: /v2/name cannot be read: the controller does not answer\n");
}

TEST(Property, OfAPathThatNoRequestHoldsIsWrongUsage) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, values);

    EXPECT_EQ(vpdctl({"property", "/" + std::string(127, 'x'), "--server", server}).code, exit_usage);
    EXPECT_EQ(vpdctl({"property", "/" + std::string(126, 'x'), "--server", server}).code, exit_incomplete);
    EXPECT_EQ(vpdctl({"property", "", "--server", server}).code, exit_usage);
    EXPECT_EQ(vpdctl({"property", "--server", server}).code, exit_usage);
}

TEST(Property, PathsAreEchoedHarmlessly) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, values);

    EXPECT_TRUE(is_harmless(vpdctl({"property", "/\x1b[2J", "--server", server}).err));
    EXPECT_TRUE(is_harmless(vpdctl({"property", "/%s%n", "--tree", "--server", server}).err));
}

TEST(PropertyTree, ShowsFoldersAndValues) {
    const ScratchFolder folder;
    const Outcome outcome = vpdctl({"property", "/v2", "--tree", "--server", server_with(folder, values)});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_EQ(outcome.out,
              "/v2\n"
              "├─ fw\n"
              "│  ├─ a\n"
              "│  │  └─ version  1.02\n"
              "│  └─ id  X\n"
              "├─ mac   02 00 5E 01 02 FF\n"
              "├─ name  node 7\n"
              "└─ text  61 1B 5B 32 4A 62\n");
}

TEST(PropertyTree, GoesOverPages) {
    const ScratchFolder folder;
    const std::string whole = server_with(folder, values);
    const std::string expected = vpdctl({"property", "/", "--tree", "--server", whole}).out;
    const std::string paged = server_with(folder, values, R"({"page_size": 3})");

    EXPECT_THAT(expected, HasSubstr("name  node 7\n"));
    EXPECT_EQ(vpdctl({"property", "/", "--tree", "--server", paged}).out, expected);
}

TEST(PropertyTree, InJsonIsAListOfPaths) {
    const ScratchFolder folder;
    const Json json = vpdctl_json({"property", "/v2/fw/", "--tree", "--server", server_with(folder, values)});

    EXPECT_EQ(json["Path"], "/v2/fw/");
    EXPECT_THAT(json["Properties"], ElementsAre(Json{{"Path", "/v2/fw/a/version"}, {"Value", "1.02"}},
                                                Json{{"Path", "/v2/fw/id"}, {"Value", "X"}}));
}

TEST(PropertyTree, OfBytesIsHexadecimalAlsoWhereTheyArePrintable) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, R"({"a": {"b": [65, 66]}})");

    EXPECT_EQ(vpdctl({"property", "/a", "--tree", "--server", server}).out, "/a\n└─ b  41 42\n");
}

TEST(PropertyTree, WithoutAnythingIsSaidOnStandardError) {
    const ScratchFolder folder;
    const Outcome outcome = vpdctl({"property", "/v3", "--tree", "--server", server_with(folder, values)});

    EXPECT_EQ(outcome.code, exit_incomplete);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: there is no property below /v3\n");
}

TEST(PropertyTree, WithALaterPageThatFailsIsAFailure) {
    const ScratchFolder folder;
    const std::string server =
        server_with(folder, values, R"({"page_size": 20, "faults": [{"path": "/v2", "page": 3, "status": "0x01"}]})");

    const Outcome outcome = vpdctl({"property", "/v2", "--tree", "--server", server});

    EXPECT_EQ(outcome.code, exit_failure);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "vpdctl: what is below /v2 cannot be read\n");
}

std::vector<std::string> row(const Json& image) {
    const auto text = [&](const char* name) { return image[name].is_null() ? "*" : image[name].get<std::string>(); };
    return {text("Id"), text("Name"), text("SoftwareId"), text("ReleaseDate"), text("Version")};
}

TEST(Firmware, OfEveryImageIsRead) {
    const Outcome outcome = vpdctl({"firmware", "--server", server_file("ddr5-2s"), "--json"});
    std::vector<std::vector<std::string>> rows;
    const Json json = Json::parse(outcome.out);
    for (const Json& image : json["Firmware"]) rows.push_back(row(image));

    EXPECT_EQ(outcome.code, exit_ok);
    using Row = std::vector<std::string>;
    const auto controller = [](const char* id, const char* name) {
        return Row{id, name, "BMC112A", "2024-02-05", "1.12"};
    };
    EXPECT_THAT(rows,
                ElementsAre(controller("orva_primary", "ORVA2(Primary)"), controller("orva2_primary", "ORVA2(Primary)"),
                            controller("orva3_primary", "BMC(Primary)"), controller("orva", "ORVA2(Active)"),
                            controller("orva2", "ORVA2(Active)"), controller("orva3", "BMC(Active)"),
                            controller("orva_backup", "ORVA2(Backup)"), controller("orva2_backup", "ORVA2(Backup)"),
                            controller("orva3_backup", "BMC(Backup)"),
                            Row{"orva3_primary_pending", "BMC(Primary)", "BMC114C", "2024-06-17", "1.14"},
                            Row{"uefi", "UEFI", "HFW204B", "2024-01-29", "2.04"},
                            Row{"uefi_pending", "UEFI", "HFW206A", "2024-06-03", "2.06"},
                            Row{"qsv", "KVRN", "PRV301C", "2024-01-22", "3.01"},
                            Row{"drvwn", "KVRN Windows Drivers", "PDW301B", "2024-01-15", "3.01"},
                            Row{"drvln", "KVRN Linux Drivers", "PDL301D", "2024-01-18", "3.01"},
                            Row{"nexol", "NEXOL", "NXO115K", "2023-12-11", "1.15"}));
}

TEST(Firmware, IsATableForPeople) {
    const Outcome outcome = vpdctl({"firmware", "--server", server_file("ddr5-2s")});

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("  Image                  Name                  Build id  Date        Version\n"),
                      HasSubstr("  orva3                  BMC(Active)           BMC112A   2024-02-05  1.12\n")));
}

TEST(Firmware, FallsBackAndShowsWhatIsNotThereAsAStar) {
    const Outcome outcome = vpdctl({"firmware", "--server", server_file("ddr4-2s"), "--json"});
    const Json json = Json::parse(outcome.out)["Firmware"];

    EXPECT_EQ(outcome.code, exit_ok) << "no update is pending";
    EXPECT_EQ(json[8]["SoftwareId"], "BMC416A");
    EXPECT_EQ(json[15]["SoftwareId"], "NXO098D");
    EXPECT_TRUE(json[11]["SoftwareId"].is_null());
    EXPECT_THAT(vpdctl({"firmware", "--server", server_file("ddr4-2s")}).out,
                HasSubstr("  uefi_pending           UEFI                  *         *           *\n"));
}

TEST(Firmware, ThatIsThereInPartIsIncomplete) {
    const ScratchFolder folder;
    const std::string server = server_with(folder, R"({"v2": {"qsv": {"build_id": "A", "build_date": "B"}}})");

    const Outcome outcome = vpdctl({"firmware", "--server", server});

    EXPECT_EQ(outcome.code, exit_incomplete);
    EXPECT_THAT(outcome.out, HasSubstr("  qsv                    KVRN                  A         B     *\n"));
}

TEST(Firmware, OfAControllerThatKnowsNoneIsIncomplete) {
    const ScratchFolder folder;

    EXPECT_EQ(vpdctl({"firmware", "--server", server_with(folder, "{}")}).code, exit_incomplete);
}

TEST(Firmware, WithEscapeSequencesIsHarmless) {
    const ScratchFolder folder;
    const std::string server = server_with(
        folder, R"({"v2": {"qsv": {"build_id": "\u001b[2J", "build_date": "\u009b", "build_version": "x"}}})");

    EXPECT_TRUE(is_harmless(vpdctl({"firmware", "--server", server}).out));
    EXPECT_TRUE(is_harmless(vpdctl({"firmware", "--server", server, "--json"}).out));
}

}  // namespace
}  // namespace vpdd::test

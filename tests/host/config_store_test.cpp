// SPDX-License-Identifier: Apache-2.0
#include <ctime>
#include <optional>

#include "open_server.h"
#include "platform/configuration.h"

using namespace vpdd::test;

namespace {

struct Seen {
    std::string name, text;
    VpddHostVariableKind kind;
    int32_t integer, flag;
    int64_t changed;
};

std::vector<Seen> variables() {
    std::vector<Seen> seen;
    const auto visit = [](void* context, const VpddHostVariable* variable) {
        static_cast<std::vector<Seen>*>(context)->push_back(
            {variable->name, variable->text, variable->kind, variable->integer, variable->flag, variable->changed});
        return 0;
    };
    EXPECT_EQ(vpdd_host_each_variable(visit, &seen), 0);
    return seen;
}

std::optional<int32_t> integer(const char* name) {
    int32_t value = -7;
    return tarn_config_get_int(name, &value) != 0 ? std::optional(value) : std::nullopt;
}

VpddHostOptions kept_in(const TemporaryFolder& folder) {
    VpddHostOptions options{};
    options.state_directory = folder.c_str();
    return options;
}

TEST(ConfigStore, KeepsIntegers) {
    const OpenServer server(server_text(""));

    EXPECT_NE(tarn_config_set_int("count", 7, 1), 0);
    EXPECT_EQ(integer("count"), 7);
    EXPECT_NE(tarn_config_set_int("count", INT32_MIN, 1), 0);
    EXPECT_EQ(integer("count"), INT32_MIN);
}

TEST(ConfigStore, FailsForAnUnknownNameAndLeavesTheValue) {
    const OpenServer server(server_text(""));
    int32_t value = 5;

    EXPECT_EQ(tarn_config_get_int("nothing", &value), 0);

    EXPECT_EQ(value, 5);
}

TEST(ConfigStore, HasNoIntegerUnderTheNameOfAText) {
    const OpenServer server(server_text(""));
    tarn_config_set_str("name", "12", 0);

    EXPECT_EQ(integer("name"), std::nullopt);
}

TEST(ConfigStore, ShowsVariablesInTheOrderOfTheirNames) {
    const OpenServer server(server_text(""));
    const int64_t before = std::time(nullptr);
    tarn_config_set_str("model", "ER420", 1);
    tarn_config_set_int("count", -3, 0);

    const auto seen = variables();

    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].name, "count");
    EXPECT_EQ(seen[0].kind, VPDD_HOST_INTEGER);
    EXPECT_EQ(seen[0].integer, -3);
    EXPECT_EQ(seen[0].text, "-3");
    EXPECT_EQ(seen[0].flag, 0);
    EXPECT_EQ(seen[1].name, "model");
    EXPECT_EQ(seen[1].kind, VPDD_HOST_TEXT);
    EXPECT_EQ(seen[1].integer, 0);
    EXPECT_EQ(seen[1].text, "ER420");
    EXPECT_EQ(seen[1].flag, 1);
    EXPECT_GE(seen[1].changed, before);
    EXPECT_LE(seen[1].changed, std::time(nullptr));
}

TEST(ConfigStore, ReplacesAVariableWithOneOfAnotherKind) {
    const OpenServer server(server_text(""));
    tarn_config_set_str("name", "text", 1);
    tarn_config_set_int("name", 4, 0);

    const auto seen = variables();

    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].kind, VPDD_HOST_INTEGER);
    EXPECT_EQ(seen[0].flag, 0);
}

TEST(ConfigStore, KeepsTheGivenLengthOfAText) {
    const OpenServer server(server_text(""));
    tarn_config_set_str_n("name", "abcdef", 3, 1);

    EXPECT_EQ(variables().at(0).text, "abc");
}

TEST(ConfigStore, KeepsEmptyTextsAndBytesThatAreNoCharacters) {
    const OpenServer server(server_text(""));
    EXPECT_NE(tarn_config_set_str("a", "", 1), 0);
    EXPECT_NE(tarn_config_set_str("b", "\xFF\x80\x01", 1), 0);

    EXPECT_EQ(variables().at(0).text, "");
    EXPECT_EQ(variables().at(1).text, "\xFF\x80\x01");
}

TEST(ConfigStore, EndsTheWalkWhenTheVisitorSaysSo) {
    const OpenServer server(server_text(""));
    tarn_config_set_int("a", 1, 0);
    tarn_config_set_int("b", 2, 0);
    int calls = 0;

    vpdd_host_each_variable([](void* context, const VpddHostVariable*) { return ++*static_cast<int*>(context); },
                            &calls);

    EXPECT_EQ(calls, 1);
}

TEST(ConfigStore, MayBeSetByItsVisitor) {
    const OpenServer server(server_text(""));
    tarn_config_set_int("a", 1, 0);

    vpdd_host_each_variable([](void*, const VpddHostVariable*) { return tarn_config_set_int("a", 2, 0) - 1; }, nullptr);

    EXPECT_EQ(integer("a"), 2);
}

TEST(ConfigStore, InMemoryIsEmptyAfterReopening) {
    {
        const OpenServer first(server_text(""));
        tarn_config_set_int("a", 1, 0);
    }
    const OpenServer second(server_text(""));

    EXPECT_TRUE(variables().empty());
}

TEST(ConfigStore, InAStateDirectorySurvivesReopening) {
    const TemporaryFolder folder;
    {
        const OpenServer first(server_text(""), kept_in(folder));
        tarn_config_set_int("count", 7, 1);
        tarn_config_set_str("model", "ER420", 1);
        tarn_event_type_occurred(4, "compvpd_state_event", 1, 2);
    }
    const OpenServer second(server_text(""), kept_in(folder));

    EXPECT_EQ(integer("count"), 7);
    EXPECT_EQ(variables().at(1).text, "ER420");
    EXPECT_EQ(events().size(), 1U);
}

TEST(ConfigStore, MakesItsStateDirectory) {
    const TemporaryFolder folder;
    const std::string nested = folder.file("a/b").string();
    VpddHostOptions options{};
    options.state_directory = nested.c_str();

    const OpenServer server(server_text(""), options);

    EXPECT_TRUE(std::filesystem::exists(folder.file("a/b/configuration.sqlite")));
}

std::string refusal_with_state_in(const std::string& directory) {
    VpddHostOptions options{};
    options.state_directory = directory.c_str();
    const std::string text = server_text("");
    char error[256] = "";
    EXPECT_EQ(vpdd_host_open_text(text.c_str(), text.size(), nullptr, &options, error, sizeof error), -1);
    return error;
}

TEST(ConfigStore, InADirectoryThatCannotBeMadeIsRefused) {
    const TemporaryFolder folder;
    folder.write("file", "");

    EXPECT_NE(refusal_with_state_in(folder.file("file/state").string()).find("Not a directory"), std::string::npos);
}

TEST(ConfigStore, InAFileOfAnotherKindIsRefused) {
    const TemporaryFolder folder;
    folder.write("configuration.sqlite", "this is no database, and it is longer than a header of one has to be");

    EXPECT_EQ(refusal_with_state_in(folder.c_str()),
              folder.file("configuration.sqlite").string() + ": file is not a database");
}

TEST(ConfigStore, RecordsEvents) {
    const OpenServer server(server_text(""));
    EXPECT_NE(tarn_event_type_occurred(4, "compvpd_state_event", 11, -2), 0);
    EXPECT_NE(tarn_event_type_occurred(5, "other", 0, 0), 0);

    EXPECT_EQ(events(), (std::vector<SeenEvent>{{"compvpd_state_event", 4, 11, -2}, {"other", 5, 0, 0}}));
}

TEST(ConfigStore, FailsWithoutAServerOrAName) {
    EXPECT_EQ(tarn_config_set_int("a", 1, 0), 0);
    EXPECT_EQ(tarn_config_set_str("a", "x", 0), 0);
    EXPECT_EQ(tarn_event_type_occurred(4, "a", 0, 0), 0);
    const OpenServer server(server_text(""));
    EXPECT_EQ(tarn_config_set_int(nullptr, 1, 0), 0);
    EXPECT_EQ(tarn_config_set_str("a", nullptr, 0), 0);
    EXPECT_EQ(tarn_config_set_str_n("a", nullptr, 3, 0), 0);
    EXPECT_EQ(tarn_event_type_occurred(4, nullptr, 0, 0), 0);
}

}  // namespace

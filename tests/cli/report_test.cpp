// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "host/images/fru_image.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

/// A processor with a sensor, a module and an empty slot on the four-slot board, and a fan with the given texts.
std::string description(const std::string& serial_number, const std::string& name = "Fan 1",
                        const std::string& pos_id = "0x0073") {
    return R"({"name": "one", "machine": {"vpd_id": "0x0050", "pos_id": ")" + pos_id + R"("}, "frus": [
      {"fru_id": 1, "name": "CPU 1", "entity": "processor", "instance": 1, "content": {"areas": {
        "product": {"version": "ES-1", "serial_number": "EC1"}, "ppin": "123456781"}}},
      {"fru_id": 2, "name": "DIMM 2", "entity": "memory device", "instance": 2, "content": {"dimm": {
        "generation": "DDR4", "module": "RDIMM", "size_gib": 16, "ranks": 1, "device_width": 4, "speed": 3200,
        "maker": "Samsung", "part_number": "M393A2K40DB3", "serial_number": "00000011", "year": 2023, "week": 5}}},
      {"fru_id": 5, "name": ")" +
           name + R"(", "entity": "fan", "instance": 1, "content": {"areas": {
        "board": {"manufacturer": "Example Fans", "serial_number": ")" +
           serial_number + R"(", "part_number": "EXF-1"}}}}],
      "sensors": [{"name": "CPU 1 Status", "type": 7, "state": 128}]})";
}

class Report : public testing::Test {
protected:
    void describe(const std::string& text) { server = folder.file("server.json", std::string_view(text)); }

    Outcome report(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = {"report", "--server", server, "--html", page_path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return vpdctl(arguments);
    }

    std::string page(const std::vector<std::string>& more = {}) const {
        report(more);
        return read_file(page_path());
    }

    /// What a killed or failed vpdctl could have left.
    std::size_t file_count() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder.path("")), {}));
    }

    std::string page_path() const { return folder.path("page.html"); }

    ScratchFolder folder;
    std::string server = server_file("ddr5-2s");
};

/// The one address in it is the name of the SVG language.
std::string without_svg_name(std::string text) {
    const std::string name = "xmlns=\"http://www.w3.org/2000/svg\"";
    const std::size_t position = text.find(name);
    return position == std::string::npos ? text : text.erase(position, name.size());
}

TEST_F(Report, IsOnePageThatNeedsNothingElse) {
    const Outcome outcome = report();
    const std::string html = read_file(page_path());

    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(html, StartsWith("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"));
    EXPECT_THAT(html, EndsWith("</body>\n</html>\n"));
    EXPECT_THAT(html, HasSubstr("<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
                                "'unsafe-inline'; base-uri 'none'; form-action 'none'\">\n"));
    EXPECT_THAT(without_svg_name(html),
                Not(AnyOf(HasSubstr("://"), HasSubstr("src="), HasSubstr("url("), HasSubstr("@import"),
                          HasSubstr("<script"), HasSubstr("<link"), HasSubstr("href=\"/"))));
    EXPECT_TRUE(is_harmless(html));
}

TEST_F(Report, ShowsTheMachineAndItsComponents) {
    EXPECT_THAT(page(),
                AllOf(HasSubstr("<p>Example Systems Rack Server ER560, type/model PRAIRIE-560, serial number"),
                      HasSubstr("<tr><th scope=\"row\">Asset tag</th><td>RACK 03 U 08</td></tr>"),
                      HasSubstr("<h2>Processors (2)</h2>"), HasSubstr("<td>ES-8458P 2.7GHz 44C</td>"),
                      HasSubstr("<h2>Memory (31)</h2>"), HasSubstr("<th scope=\"row\">DIMM 17</th>"),
                      HasSubstr("<h2>Could not be read (2)</h2>"), HasSubstr("of those modules only the speeds")));
}

TEST_F(Report, NamesTheKindsOfOtherComponents) {
    describe(description("FN1"));

    EXPECT_THAT(page(), HasSubstr("<tr class=\"kind\"><th scope=\"rowgroup\" colspan=\"6\">Fan</th>"));
}

TEST_F(Report, DrawsTheSlotsAndListsThemTheEmptyOnesIncluded) {
    const std::string html = page();

    EXPECT_THAT(html, AllOf(HasSubstr("<figure>\n<svg "), HasSubstr("</svg>\n</figure>"),
                            HasSubstr("serial number 8BDB5EBA</title>"), HasSubstr(">empty slot (1)</text>")));
    EXPECT_THAT(html, HasSubstr("<tr><th scope=\"row\" class=\"right\">17</th><td class=\"right\">1</td>"
                                "<td class=\"right\">1</td><td class=\"right\">3</td><td class=\"right\">0</td>"
                                "<td>64 GiB 4800</td>"));
    EXPECT_THAT(html, HasSubstr("<tr><th scope=\"row\" class=\"right\">14</th><td class=\"right\">0</td>"
                                "<td class=\"right\">1</td><td class=\"right\">2</td><td class=\"right\">1</td>"
                                "<td>empty</td><td></td><td></td><td></td></tr>"));
}

TEST_F(Report, ShowsTheFirmware) {
    EXPECT_THAT(page(), AllOf(HasSubstr("<h2>Firmware</h2>"), HasSubstr("<th scope=\"row\">uefi</th>"),
                              HasSubstr("<td>HFW204B</td>")));
}

TEST_F(Report, SaysWhenThereIsNoMapOfTheSlots) {
    describe(description("FN1", "Fan 1", "0x9999"));

    EXPECT_THAT(page(), AllOf(HasSubstr("<p>The library has no slot map of this platform.</p>"), Not(HasSubstr("<svg")),
                              HasSubstr("<h2>Memory (1)</h2>")));
}

TEST_F(Report, OfAServerThatWasReadCompletelyIsOk) {
    server = "ddr3-small";

    const Outcome outcome = report();

    EXPECT_EQ(outcome.code, exit_ok);
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_THAT(read_file(page_path()), HasSubstr("<title>ddr3-small: vital product data</title>"));
}

TEST_F(Report, IsWrittenInFullWhenSomethingCouldNotBeRead) {
    const Outcome outcome = report();

    EXPECT_EQ(outcome.code, exit_incomplete);
    EXPECT_EQ(outcome.err, "vpdctl: " + page_path() + " was written; could not be read: 2 components\n");
    EXPECT_THAT(read_file(page_path()), EndsWith("</html>\n"));
}

TEST_F(Report, EscapesWhatTheServerSays) {
    describe(description("<script>a('1')</script>", "<b>&\\\"9"));
    const std::string html = page();

    EXPECT_THAT(html, HasSubstr("<td>&lt;script&gt;a(&#39;1&#39;)&lt;/script&gt;</td>"));
    EXPECT_THAT(html, HasSubstr("<th scope=\"row\">&lt;b&gt;&amp;&quot;9</th>"));
    EXPECT_THAT(html, Not(AnyOf(HasSubstr("<script"), HasSubstr("<b>"))));
}

TEST_F(Report, EscapesTheNameOfTheServersFile) {
    fs::rename(folder.file("server.json", std::string_view(description("FN1"))), folder.path("<i>&.json"));
    server = folder.path("<i>&.json");
    const std::string html = page();

    EXPECT_THAT(html, AllOf(HasSubstr("/&lt;i&gt;&amp;.json: vital product data</title>"), HasSubstr("&amp;.json</h1>"),
                            Not(HasSubstr("<i>"))));
}

TEST_F(Report, HasNoByteThatCannotBeShown) {
    const std::string hostile = "A\x1b]0;\x07\xff\xc2\x85\u202eB";
    folder.file("fan", images::FruImage().board({.manufacturer = "ACME", .serial = hostile, .part = "PART"}).build());
    describe(R"({"name": "one", "machine": {}, "frus": [
        {"fru_id": 5, "name": "Fan 1", "entity": "fan", "instance": 1, "content": {"raw": "fan"}}]})");
    const std::string html = page();

    EXPECT_TRUE(is_harmless(html));
    EXPECT_THAT(html, HasSubstr("<td>A\\x1B]0;\\x07\\xFF\\xC2\\x85\\xE2\\x80\\xAEB</td>"));
}

TEST_F(Report, WithoutStateHasNoStatus) {
    EXPECT_THAT(page(), Not(AnyOf(HasSubstr("<h2>Status</h2>"), HasSubstr("<h2>History</h2>"))));
}

TEST_F(Report, WithStateHasStatusAndHistory) {
    if (!private_roots_are_allowed()) GTEST_SKIP() << "this machine allows no private root";
    describe(description("FN1"));
    const std::string state = folder.path("state");
    page({"--state", state});
    vpdctl({"simulate", "swap", "CPU 1", "--server", server, "--state", state, "--serial", "EC9"});

    const std::string html = page({"--state", state});

    EXPECT_THAT(html, AllOf(HasSubstr("<h2>Status</h2>\n<p>3 components: 3 present, 0 absent; 1 changed</p>"),
                            HasSubstr("<td>replaced</td>"), HasSubstr("<h2>History</h2>"),
                            HasSubstr("<td>CPU 1: serial EC1 replaced by EC9</td>"), HasSubstr("<h2>Memory (1)</h2>")));
}

TEST_F(Report, TakesThePlaceOfAnOlderOneAndItsPermissions) {
    folder.file("page.html", std::string_view("old"));
    ASSERT_EQ(chmod(page_path().c_str(), 0640), 0);
    fs::create_symlink("page.html", folder.path("link.html"));

    vpdctl({"report", "--server", server, "--html", folder.path("link.html")});

    EXPECT_THAT(read_file(page_path()), EndsWith("</html>\n"));
    EXPECT_EQ(fs::status(page_path()).permissions(), fs::perms(0640));
    EXPECT_TRUE(fs::is_symlink(folder.path("link.html")));
    EXPECT_EQ(file_count(), 2U);
}

TEST_F(Report, OfAServerThatCannotBeOpenedLeavesTheOlderOne) {
    folder.file("page.html", std::string_view("old"));
    describe("no description");

    const Outcome outcome = report();

    EXPECT_EQ(outcome.code, exit_bad_input);
    EXPECT_THAT(outcome.err, StartsWith("vpdctl: "));
    EXPECT_EQ(read_file(page_path()), "old");
    EXPECT_EQ(file_count(), 2U);
}

TEST_F(Report, ThatCannotBeWrittenIsAFailure) {
    const auto report_into = [&](const std::string& path) {
        return vpdctl({"report", "--server", server, "--html", path});
    };
    const Outcome nowhere = report_into("/nonexistent/page.html");

    EXPECT_EQ(nowhere.code, exit_failure);
    EXPECT_EQ(nowhere.err, "vpdctl: /nonexistent/page.html: cannot write: No such file or directory\n");
    EXPECT_EQ(report_into("/dev/full").err, "vpdctl: /dev/full: cannot write: No space left on device\n");
    EXPECT_EQ(report_into(folder.path("")).code, exit_failure);
    EXPECT_EQ(file_count(), 0U);
}

TEST_F(Report, NeedsAServerAndAFile) {
    const Outcome no_server = vpdctl({"report", "--html", page_path()});

    EXPECT_EQ(no_server.code, exit_usage);
    EXPECT_EQ(no_server.err, "vpdctl: --server is required, or --bmc\n");
    EXPECT_EQ(file_count(), 0U);
    EXPECT_EQ(vpdctl({"report", "--server", server}).code, exit_usage);
}

}  // namespace
}  // namespace vpdd::test

// SPDX-License-Identifier: Apache-2.0
#include "cli/report.h"

#include <ostream>
#include <sstream>
#include <string_view>

#include "cli/machine.h"
#include "cli/markup.h"
#include "cli/time_text.h"

namespace vpdd::cli {

namespace {

// Nothing is fetched and nothing runs, whatever a text of the server has smuggled in.
constexpr const char* content_security_policy =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

constexpr const char* style_sheet =
    ":root{color-scheme:light dark;--text:#1f2933;--faint:#52606d;--line:#cbd2d9;--stripe:#f5f7fa;--page:#fff;"
    "--link:#1d5a8e}\n"
    "body{font:15px/1.45 system-ui,'DejaVu Sans',Arial,sans-serif;color:var(--text);background:var(--page);"
    "max-width:1560px;margin:0 auto;padding:24px}\n"
    "h1{font-size:26px;margin:0 0 8px}h2{font-size:19px;margin:32px 0 8px}header p{margin:2px 0}\n"
    "header p:last-child{color:var(--faint)}a{color:var(--link)}\n"
    "h1,header p,section>p{overflow-wrap:anywhere}\n"
    "nav ul{list-style:none;display:flex;flex-wrap:wrap;gap:4px 18px;padding:0;margin:16px 0 0}\n"
    ".table{overflow-x:auto;margin:8px 0}table{border-collapse:collapse;font-size:14px}\n"
    "th,td{text-align:left;vertical-align:top;padding:4px 14px 4px 6px;border-bottom:1px solid var(--line);"
    "white-space:pre-wrap;font-variant-numeric:tabular-nums}\n"
    "th{font-weight:600}thead th{border-bottom-width:2px;white-space:nowrap}tbody th{font-weight:500}\n"
    "tbody tr:nth-child(even){background:var(--stripe)}\n"
    "tbody tr.kind{background:none}.kind th{font-weight:600;padding-top:14px}\n"
    ".values th{color:var(--faint);white-space:nowrap}.values td{overflow-wrap:anywhere}\n"
    "th.right,td.right{text-align:right}\n"
    "figure{margin:8px 0}figure svg{max-width:100%;height:auto}\n";

constexpr const char* dark_style_sheet =
    ":root{--text:#e4e7eb;--faint:#9aa5b1;--line:#3e4c59;--stripe:#1b2127;--page:#14181c;--link:#7db8e8}";

constexpr const char* print_style_sheet =
    "@page{size:landscape;margin:12mm}body{padding:0;max-width:none;font-size:10pt}nav{display:none}table{font-size:"
    "8pt}\n"
    ".table{overflow:visible}th,td{padding:2px 6px 2px 3px;overflow-wrap:break-word}\n"
    "tr,figure{break-inside:avoid}h2{break-after:avoid}";

/// What stands under a heading of the page, as HTML.
struct Part {
    std::string title;
    std::string body;
};

template <class Writer>
Part part(const std::string& title, const Writer& write) {
    std::ostringstream body;
    write(body);
    return {title, body.str()};
}

std::string paragraph(std::string_view text) { return "<p>" + markup_text(text) + "</p>\n"; }

Part board_part(const std::optional<Board>& board) {
    return part("DIMM slots", [&](std::ostream& out) {
        if (!board) {
            out << paragraph("The library has no slot map of this platform.");
            return;
        }
        out << "<figure>\n";
        write_board_svg(out, *board);
        out << "</figure>\n";
        for (const std::string& note : notes(*board)) out << paragraph(note);
        board_table(*board).write_html(out);
    });
}

Part firmware_part(const std::vector<Firmware>& firmware) {
    return part("Firmware", [&](std::ostream& out) {
        firmware_table(firmware).write_html(out);
        out << paragraph("What cannot be read, or is not there, is a *.");
    });
}

Part status_part(const ServerStatus& status) {
    return part("Status", [&](std::ostream& out) {
        out << paragraph(summary(status));
        status_table(status, false).write_html(out);
    });
}

Part history_part(const std::vector<Change>& changes) {
    return part("History", [&](std::ostream& out) {
        if (changes.empty()) out << paragraph("Nothing has changed.");
        Table table({{"Time"}, {"Change"}}, 1);
        for (const Change& change : changes) table.add({local_minute_text(change.time), sentence(change)});
        table.write_html(out);
    });
}

std::vector<Part> parts_of(const Report& report) {
    std::vector<Part> parts;
    parts.push_back(
        part("Machine", [&](std::ostream& out) { machine_values(report.inventory.machine).write_html(out); }));
    parts.push_back(board_part(report.board));
    for (const Section& section : inventory_sections(report.inventory)) {
        parts.push_back(part(section.title, [&](std::ostream& out) { section.write_html(out); }));
    }
    parts.push_back(firmware_part(report.firmware));
    if (!report.status) return parts;
    parts.push_back(status_part(*report.status));
    parts.push_back(history_part(report.changes));
    return parts;
}

void write_head(std::ostream& out, const Report& report) {
    out << "<head>\n<meta charset=\"utf-8\">\n<meta http-equiv=\"Content-Security-Policy\" content=\""
        << content_security_policy << "\">\n"
        << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        << "<meta name=\"generator\" content=\"vpdctl " << VPDCTL_VERSION << "\">\n<title>"
        << markup_text(report.server) << ": vital product data</title>\n<style>\n"
        << style_sheet << "@media screen and (prefers-color-scheme:dark){\n"
        << dark_style_sheet << '\n'
        << board_svg_dark_style() << "\n}\n@media print{\n"
        << print_style_sheet << "\n}\n</style>\n</head>\n";
}

void write_header(std::ostream& out, const Report& report, const std::vector<Part>& parts) {
    out << "<header>\n<h1>" << markup_text(report.server) << "</h1>\n";
    for (const std::string& line : identity_lines(report.inventory.machine)) out << paragraph(line);
    out << paragraph("Read on " + local_time_text(report.time) + " by vpdctl " VPDCTL_VERSION)
        << "</header>\n<nav><ul>\n";
    for (std::size_t index = 0; index < parts.size(); ++index) {
        out << "<li><a href=\"#part" << index << "\">" << markup_text(parts[index].title) << "</a></li>\n";
    }
    out << "</ul></nav>\n";
}

}  // namespace

bool Report::is_complete() const {
    return inventory.unread.empty() && (!board || board->is_complete()) && cli::is_complete(firmware) &&
           (!status || status->is_complete);
}

void write_report_html(std::ostream& out, const Report& report) {
    const std::vector<Part> parts = parts_of(report);
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n";
    write_head(out, report);
    out << "<body>\n";
    write_header(out, report, parts);
    out << "<main>\n";
    for (std::size_t index = 0; index < parts.size(); ++index) {
        out << "<section id=\"part" << index << "\">\n<h2>" << markup_text(parts[index].title) << "</h2>\n"
            << parts[index].body << "</section>\n";
    }
    out << "</main>\n</body>\n</html>\n";
}

}  // namespace vpdd::cli

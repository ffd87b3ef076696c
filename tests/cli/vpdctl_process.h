// SPDX-License-Identifier: Apache-2.0
// Runs the vpdctl that was built, as people and scripts run it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vpdd::test {

using Json = nlohmann::json;
using Environment = std::map<std::string, std::string>;

/// What vpdctl says by its exit code.
inline constexpr int exit_ok = 0;
inline constexpr int exit_incomplete = 1;
inline constexpr int exit_usage = 2;
inline constexpr int exit_bad_input = 3;
inline constexpr int exit_failure = 4;

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
};

/// The exit code when there is no such program.
inline constexpr int exit_not_found = 127;

/// Both outputs go to files. Dates are those of UTC.
Outcome vpdctl(const std::vector<std::string>& arguments, const Environment& environment = {});

/// The same of a program of this machine, by its name.
Outcome run_tool(const std::vector<std::string>& words, const Environment& environment = {});

/// The JSON that vpdctl prints, whatever its exit code.
Json vpdctl_json(std::vector<std::string> arguments);

/// Both outputs go to a terminal of this width; `out` has them as they came.
Outcome vpdctl_on_terminal(const std::vector<std::string>& arguments, unsigned short columns,
                           const Environment& environment = {});

/// On a terminal on which somebody types this.
Outcome vpdctl_answered(const std::vector<std::string>& arguments, const std::string& typed);

/// Standard output goes to an open file.
int vpdctl_into(const std::string& path, const std::vector<std::string>& arguments);

/// A folder that goes with the object.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string path(const std::string& name) const { return folder_ / name; }
    /// Writes a file and returns its path.
    std::string file(const std::string& name, std::span<const uint8_t> content) const;
    std::string file(const std::string& name, std::string_view content) const;

private:
    std::filesystem::path folder_;
};

/// Whether the machine lets vpdctl have a /flash and a /tmp of its own.
bool private_roots_are_allowed();

using FileTimes = std::map<std::filesystem::path, std::filesystem::file_time_type>;

/// The files at the library's fixed paths on this machine, where vpdctl has to leave them alone.
FileTimes files_at_fixed_paths();

std::string read_file(const std::filesystem::path& path);

/// A description of a server that came with vpdctl.
std::string server_file(const std::string& name);

/// The lines of a text.
std::vector<std::string> lines_of(const std::string& text);

/// Whether a text has only printable ASCII, line ends and well-formed UTF-8 that is no control character.
bool is_harmless(std::string_view text);

}  // namespace vpdd::test

// SPDX-License-Identifier: Apache-2.0
#include "vpdctl_process.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "target_program.h"

namespace vpdd::test {

namespace {

/// In the child: what every program finds.
void set_environment(const Environment& environment) {
    unsetenv("NO_COLOR");
    unsetenv("COLUMNS");
    setenv("TERM", "xterm", 1);
    setenv("TZ", "UTC", 1);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
}

/// In the child: becomes vpdctl.
[[noreturn]] void execute(const std::vector<std::string>& arguments, const Environment& environment) {
    set_environment(environment);
    std::vector<std::string> words = {VPDCTL_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    become(words);
    _exit(exit_not_found);
}

/// In the child: becomes a program of this machine.
[[noreturn]] void execute_tool(std::vector<std::string> words, const Environment& environment) {
    set_environment(environment);
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execvp(pointers.front(), pointers.data());
    _exit(exit_not_found);
}

/// The exit code, or 128 and the signal as shells have it.
int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class MemoryOutput {
public:
    MemoryOutput() : descriptor_(memfd_create("output", 0)) {
        if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
    ~MemoryOutput() { close(descriptor_); }
    MemoryOutput(const MemoryOutput&) = delete;
    MemoryOutput& operator=(const MemoryOutput&) = delete;

    int descriptor() const { return descriptor_; }
    std::string text() const { return read_file("/proc/self/fd/" + std::to_string(descriptor_)); }

private:
    int descriptor_;
};

/// @param in_child becomes the program
template <class InChild>
Outcome captured(InChild in_child, const std::vector<std::string>& words, const Environment& environment) {
    const MemoryOutput out;
    const MemoryOutput err;
    const pid_t child = fork();
    if (child == 0) {
        dup2(out.descriptor(), STDOUT_FILENO);
        dup2(err.descriptor(), STDERR_FILENO);
        in_child(words, environment);
    }
    const int code = wait_for(child);
    return {code, out.text(), err.text()};
}

std::string read_until_closed(int descriptor) {
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        // A terminal whose other side is closed reads as an error.
        if (count <= 0) return text;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

Outcome on_terminal(const std::vector<std::string>& arguments, unsigned short columns, const Environment& environment,
                    const std::string& typed) {
    winsize size{};
    size.ws_col = columns;
    size.ws_row = 50;
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) execute(arguments, environment);
    // What is typed ahead waits in the terminal.
    if (write(terminal, typed.data(), typed.size()) < 0) throw std::system_error(errno, std::generic_category(), "pty");
    Outcome outcome;
    outcome.out = read_until_closed(terminal);
    outcome.code = wait_for(child);
    close(terminal);
    return outcome;
}

}  // namespace

Outcome vpdctl(const std::vector<std::string>& arguments, const Environment& environment) {
    return captured(execute, arguments, environment);
}

Outcome run_tool(const std::vector<std::string>& words, const Environment& environment) {
    return captured(execute_tool, words, environment);
}

Json vpdctl_json(std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    return Json::parse(vpdctl(arguments).out);
}

Outcome vpdctl_on_terminal(const std::vector<std::string>& arguments, unsigned short columns,
                           const Environment& environment) {
    return on_terminal(arguments, columns, environment, "");
}

Outcome vpdctl_answered(const std::vector<std::string>& arguments, const std::string& typed) {
    constexpr unsigned short usual_width = 80;
    return on_terminal(arguments, usual_width, {}, typed);
}

int vpdctl_into(const std::string& path, const std::vector<std::string>& arguments) {
    const pid_t child = fork();
    if (child == 0) {
        dup2(open(path.c_str(), O_WRONLY), STDOUT_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execute(arguments, {});
    }
    return wait_for(child);
}

ScratchFolder::ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "vpdctl-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
    folder_ = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string ScratchFolder::file(const std::string& name, std::span<const uint8_t> content) const {
    return file(name, std::string_view(reinterpret_cast<const char*>(content.data()), content.size()));
}

std::string ScratchFolder::file(const std::string& name, std::string_view content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
}

bool private_roots_are_allowed() {
    const ScratchFolder folder;
    return vpdctl({"log", "--state", folder.path("state")}).err.find("no private /flash and /tmp") == std::string::npos;
}

FileTimes files_at_fixed_paths() {
    FileTimes files;
    for (const char* path :
         {"/flash", "/flash/data0", "/flash/data0/component_activity.log", "/flash/data0/component_activity.log.backup",
          "/tmp/vpdd_lock", "/tmp/vpdd_trace.log", "/tmp/machine.cache", "/tmp/oemMachine.cache",
          "/tmp/vpdd_machine_lock", "/tmp/vpdd_machine_oem_lock"}) {
        if (std::filesystem::exists(path)) files[path] = std::filesystem::last_write_time(path);
    }
    return files;
}

std::string read_file(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string server_file(const std::string& name) { return std::string(SERVER_FOLDER) + '/' + name + ".json"; }

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

bool is_harmless(std::string_view text) {
    // The JSON library checks UTF-8; C1 control characters are the only ones outside ASCII.
    try {
        static_cast<void>(Json(text).dump());
    } catch (const Json::exception&) {
        return false;
    }
    for (std::size_t position = 0; position < text.size(); ++position) {
        const auto byte = static_cast<uint8_t>(text[position]);
        if ((byte < 0x20 && byte != '\n') || byte == 0x7F) return false;
        const bool c1_control = byte == 0xC2 && static_cast<uint8_t>(text[position + 1]) < 0xA0;
        if (c1_control) return false;
    }
    return true;
}

}  // namespace vpdd::test

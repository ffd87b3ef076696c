// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "own_process.h"
#include "target_program.h"

namespace {

/// The loader looks at its path only when a program starts: starts this one again with the tests' own change-history
/// library in it.
[[maybe_unused]] void find_libraries_in(const std::string& folder, int argc, char** argv) {
    const char* const path = std::getenv("LD_LIBRARY_PATH");
    const std::string others = path != nullptr ? path : "";
    if (others.starts_with(folder)) return;
    setenv("LD_LIBRARY_PATH", others.empty() ? folder.c_str() : (folder + ":" + others).c_str(), 1);
    std::vector<std::string> words(argv, argv + argc);
    words[0] = std::filesystem::read_symlink("/proc/self/exe");
    vpdd::test::become(words);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef CHGHIST_FOLDER
    find_libraries_in(CHGHIST_FOLDER, argc, argv);
#endif
    // Dates are local times.
    setenv("TZ", "UTC", 1);
    return vpdd::test::run_tests_in_own_processes(argc, argv);
}

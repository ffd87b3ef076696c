// SPDX-License-Identifier: Apache-2.0
// Starts programs that were built for the library's target. After a cross build they run in an emulator, which Meson
// names to the tests; the machine is not expected to start them by itself.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace vpdd::test {

/// The emulator's command, empty where none is needed.
inline std::string emulator() {
    const char* const wrapper = std::getenv("MESON_EXE_WRAPPER");
    return wrapper != nullptr ? wrapper : "";
}

/// Becomes the program words[0] with the arguments behind it; returns only on failure.
inline void become(const std::vector<std::string>& words) {
    std::vector<std::string> command;
    std::istringstream wrapper(emulator());
    for (std::string word; wrapper >> word;) command.push_back(word);
    command.insert(command.end(), words.begin(), words.end());

    std::vector<char*> pointers;
    for (std::string& word : command) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
}

}  // namespace vpdd::test

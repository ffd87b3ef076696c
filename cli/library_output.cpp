// SPDX-License-Identifier: Apache-2.0
#include "cli/library_output.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

std::string content_of(int descriptor) {
    std::string content(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
    const ssize_t count = pread(descriptor, content.data(), content.size(), 0);
    content.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return content;
}

void write_lines(std::ostream& log, const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) log << "stdout " << displayable(line) << '\n';
}

}  // namespace

LibraryOutput::LibraryOutput(std::ostream* log)
    : log_(log), kept_(dup(STDOUT_FILENO)), printed_(memfd_create("printed", MFD_CLOEXEC)) {
    if (kept_ < 0 || printed_ < 0) throw std::system_error(errno, std::generic_category(), "standard output");
    std::cout.flush();
    std::fflush(stdout);
    dup2(printed_, STDOUT_FILENO);
}

LibraryOutput::~LibraryOutput() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
    if (log_ != nullptr) write_lines(*log_, content_of(printed_));
    close(printed_);
}

}  // namespace vpdd::cli

// SPDX-License-Identifier: Apache-2.0
#include "cli/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

constexpr mode_t permissions = 0777;

/// The file behind symbolic links: that one is replaced, and the links stay.
std::string behind_links(const std::string& path) {
    std::error_code error;
    const std::filesystem::path place = std::filesystem::canonical(path, error);
    return error ? path : place.string();
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
    const std::string place = behind_links(path);
    struct stat existing {};
    const bool exists = stat(place.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) {
        file_ = open(place.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
        require(file_ >= 0);
        return;
    }
    open_beside(place);
    if (exists) require(fchmod(file_, existing.st_mode & permissions) == 0);
}

OutputFile::~OutputFile() {
    if (!temporary_.empty()) unlinkat(directory_, temporary_.c_str(), 0);
    if (file_ >= 0) close(file_);
    if (directory_ >= 0) close(directory_);
}

void OutputFile::open_beside(const std::string& place) {
    const std::filesystem::path target(place);
    const std::filesystem::path parent = target.has_parent_path() ? target.parent_path() : ".";
    name_ = target.filename();
    directory_ = open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    require(directory_ >= 0);
    const std::string unique = ".vpdctl-" + hex_number(std::random_device()(), 8);
    file_ = openat(directory_, unique.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    require(file_ >= 0);
    temporary_ = unique;
}

void OutputFile::write(std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = ::write(file_, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        require(written > 0);
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    if (temporary_.empty()) return;
    require(fsync(file_) == 0);
    require(renameat(directory_, temporary_.c_str(), directory_, name_.c_str()) == 0);
    temporary_.clear();
}

/// To be called right behind the system call, whose error is told.
void OutputFile::require(bool succeeded) const {
    if (!succeeded) throw std::runtime_error(displayable(path_) + ": cannot write: " + std::strerror(errno));
}

}  // namespace vpdd::cli

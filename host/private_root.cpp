// SPDX-License-Identifier: Apache-2.0
#include "host/private_root.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

namespace vpdd::host {

namespace {

namespace fs = std::filesystem;

// The new root is put together where every machine has a directory; its own /tmp is a directory in there.
constexpr const char* new_root = "/tmp";
constexpr const char* log_folder = "data0";  // of /flash

[[noreturn]] void fail(const std::string& step) {
    throw std::runtime_error("no private /flash and /tmp: " + step + ": " + std::strerror(errno));
}

void require(bool succeeded, const std::string& step) {
    if (!succeeded) fail(step);
}

void write_map(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    require(file.good(), path);
}

std::string only(unsigned id) { return std::to_string(id) + ' ' + std::to_string(id) + " 1"; }

/// Root needs no user namespace, everybody else becomes the owner of one.
void leave_mount_namespace() {
    if (unshare(CLONE_NEWNS) == 0) return;
    const unsigned user = geteuid();
    const unsigned group = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        fail("this machine lets this user make no namespaces (unprivileged user namespaces may be switched off)");
    }
    write_map("/proc/self/setgroups", "deny");
    write_map("/proc/self/uid_map", only(user));
    write_map("/proc/self/gid_map", only(group));
}

/// A directory that can still be named when its path leads elsewhere.
class HeldDirectory {
public:
    explicit HeldDirectory(const fs::path& path)
        : path_(path), descriptor_(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        require(descriptor_ >= 0, path.string());
    }
    ~HeldDirectory() { close(descriptor_); }
    HeldDirectory(const HeldDirectory&) = delete;
    HeldDirectory& operator=(const HeldDirectory&) = delete;

    void bind_to(const fs::path& target) const {
        const std::string name = "/proc/self/fd/" + std::to_string(descriptor_);
        require(mount(name.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, path_.string());
    }

private:
    fs::path path_;
    int descriptor_;
};

void mount_memory(const fs::path& target) {
    require(mount("tmpfs", target.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0, target.string());
}

/// Makes an entry of the machine's root visible in the new one.
void carry_over(const fs::directory_entry& entry) {
    const fs::path target = fs::path(new_root) / entry.path().relative_path();
    if (entry.is_symlink()) return fs::create_symlink(fs::read_symlink(entry.path()), target);
    if (entry.is_directory()) {
        fs::create_directory(target);
    } else {
        std::ofstream(target).flush();
    }
    const bool bound = mount(entry.path().c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
    require(bound || errno == EACCES || errno == ENOENT, entry.path().string());
}

bool is_private(const fs::path& path) { return path == "/tmp" || path == "/flash"; }

/// Whether the path leads through one of the directories that are replaced.
bool is_hidden(const fs::path& path) { return is_private("/" + (++path.begin())->string()); }

void move_into_new_root() {
    const fs::path working_directory = fs::current_path();
    require(chdir(new_root) == 0, new_root);
    // The old root comes to lie upon the new one, from where it is taken away.
    require(syscall(SYS_pivot_root, ".", ".") == 0, "pivot_root");
    require(umount2(".", MNT_DETACH) == 0, "umount");
    if (chdir(working_directory.c_str()) != 0) require(chdir("/") == 0, "/");
}

void make_root_in_memory() {
    mount_memory(new_root);
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        if (!is_private(entry.path())) carry_over(entry);
    }
    fs::create_directory(fs::path(new_root) / "tmp");
    fs::create_directory(fs::path(new_root) / "flash");
}

}  // namespace

void enter_private_root(const fs::path& state_directory) {
    leave_mount_namespace();
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount");

    const fs::path tmp = fs::path(new_root) / "tmp";
    const fs::path flash = fs::path(new_root) / "flash";
    if (state_directory.empty()) {
        make_root_in_memory();
        fs::create_directories(flash / log_folder);
        return move_into_new_root();
    }
    fs::create_directories(state_directory / "tmp");
    fs::create_directories(state_directory / "flash" / log_folder);
    const HeldDirectory state(state_directory);
    const HeldDirectory own_tmp(state_directory / "tmp");
    const HeldDirectory own_flash(state_directory / "flash");
    make_root_in_memory();
    own_tmp.bind_to(tmp);
    own_flash.bind_to(flash);
    if (is_hidden(state_directory)) {
        const fs::path same_path = fs::path(new_root) / state_directory.relative_path();
        fs::create_directories(same_path);
        state.bind_to(same_path);
    }
    move_into_new_root();
}

}  // namespace vpdd::host

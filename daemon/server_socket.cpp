// SPDX-License-Identifier: Apache-2.0
#include "daemon/server_socket.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

namespace vpdd::daemon {

namespace {

constexpr int waiting_connections = 128;

[[noreturn]] void fail(const std::string& path, const std::string& reason) { throw SocketError(path + ": " + reason); }

std::string system_reason() { return std::strerror(errno); }

sockaddr_un address_of(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) fail(path, "is no path for a socket");
    path.copy(address.sun_path, path.size());
    return address;
}

const sockaddr* general(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

int new_socket() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) throw SocketError("socket: " + system_reason());
    return fd;
}

/// What is at the path itself, not behind a link.
std::optional<struct stat> look_at(const std::string& path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) == 0) return found;
    if (errno != ENOENT) fail(path, system_reason());
    return std::nullopt;
}

bool is_same_file(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// A daemon that has died has nobody behind its socket.
bool is_dead(const std::string& path) {
    const vpdd::ScopedFd probe(new_socket());
    const sockaddr_un address = address_of(path);
    return connect(probe.get(), general(address), sizeof address) != 0 && errno == ECONNREFUSED;
}

void refuse_unless_ours_and_dead(const std::string& path, const struct stat& found) {
    if (!S_ISSOCK(found.st_mode)) {
        fail(path, std::string("is in the way: ") + (S_ISLNK(found.st_mode) ? "a symbolic link" : "no socket") +
                       " of user " + std::to_string(found.st_uid) + "; it is not removed");
    }
    if (found.st_uid != geteuid()) {
        fail(path, "is in the way: a socket of user " + std::to_string(found.st_uid) + "; it is not removed");
    }
    if (!is_dead(path)) fail(path, "another vpdd serves it");
}

/// Another daemon may start at the same time and put its socket there: the file is moved aside, looked at again, and
/// put back when it is another one than was found dead.
void remove_dead(const std::string& path, const struct stat& found) {
    const std::string aside = path + "." + std::to_string(getpid()) + ".old";
    if (rename(path.c_str(), aside.c_str()) != 0) {
        if (errno == ENOENT) return;
        fail(path, system_reason());
    }
    const auto moved = look_at(aside);
    if (moved && is_same_file(*moved, found)) {
        unlink(aside.c_str());
        return;
    }
    renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE);
    fail(path, "another vpdd serves it");
}

void remove_left_over(const std::string& path) {
    const auto found = look_at(path);
    if (!found) return;
    refuse_unless_ours_and_dead(path, *found);
    remove_dead(path, *found);
}

/// The file that is locked is the one at the path; a daemon that ends takes it away under whoever waits for it.
bool is_still_there(int fd, const std::string& path) {
    struct stat held {};
    struct stat found {};
    return fstat(fd, &held) == 0 && lstat(path.c_str(), &found) == 0 && is_same_file(found, held);
}

int locked_file(const std::string& path) {
    constexpr int attempts = 10;
    for (int i = 0; i < attempts; ++i) {
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) fail(path, "is in the way: " + system_reason());
        const bool is_locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (is_locked && is_still_there(fd, path)) return fd;
        close(fd);
        if (!is_locked) fail(path, "another vpdd serves it");
    }
    fail(path, "is removed again and again");
}

gid_t group_id(const std::string& name) {
    const struct group* entry = getgrnam(name.c_str());
    if (entry == nullptr) throw SocketError("there is no group " + name);
    return entry->gr_gid;
}

/// The socket never has more permissions than these, not even for a moment: it is bound with what the file mask leaves
/// of them. The mask itself stays, since other threads may be making files.
void bind_with_mode(int fd, const std::string& path, uint32_t mode) {
    const sockaddr_un address = address_of(path);
    if (fchmod(fd, mode) != 0) fail(path, system_reason());
    if (bind(fd, general(address), sizeof address) == 0) return;
    fail(path, errno == EADDRINUSE ? "another vpdd serves it" : system_reason());
}

}  // namespace

SocketLock::SocketLock(const std::string& socket_path) : path_(socket_path + ".lock"), fd_(locked_file(path_)) {}

void SocketLock::remove() const {
    if (is_still_there(fd_.get(), path_)) unlink(path_.c_str());
}

ServerSocket::ServerSocket(const std::string& path, uint32_t mode, const std::string& group)
    : path_(path), fd_(new_socket()) {
    remove_left_over(path);
    bind_with_mode(fd_.get(), path, mode);
    const auto bound = look_at(path);
    if (!bound) fail(path, "has vanished");
    identity_ = *bound;
    if (!group.empty() && lchown(path.c_str(), static_cast<uid_t>(-1), group_id(group)) != 0) {
        fail(path, "group " + group + ": " + system_reason());
    }
    if (fchmodat(AT_FDCWD, path.c_str(), mode, AT_SYMLINK_NOFOLLOW) != 0) fail(path, system_reason());
    if (listen(fd_.get(), waiting_connections) != 0) fail(path, system_reason());
}

bool ServerSocket::is_missing() const {
    struct stat found {};
    return lstat(path_.c_str(), &found) != 0 && errno == ENOENT;
}

void ServerSocket::remove() const {
    struct stat found {};
    if (lstat(path_.c_str(), &found) == 0 && is_same_file(found, identity_)) unlink(path_.c_str());
}

}  // namespace vpdd::daemon

// SPDX-License-Identifier: Apache-2.0
#include "host/document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <system_error>

#include "host/schema_check.h"

namespace vpdd::host {

namespace {

/// The checks and the destruction of a document recurse.
bool limit_depth(int depth, Json::parse_event_t, const Json&) {
    constexpr int deepest = 64;
    if (depth > deepest) throw DescriptionError(Json::json_pointer(), "nested more than 64 deep");
    return true;
}

/// An open regular file. Everything else could block or have no end.
class RegularFile {
public:
    explicit RegularFile(const std::filesystem::path& path)
        : name_(path.string()), descriptor_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
        if (descriptor_ < 0) fail(errno);
    }
    ~RegularFile() { close(descriptor_); }
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    void require_regular() const {
        struct stat status {};
        if (fstat(descriptor_, &status) != 0) fail(errno);
        if (S_ISDIR(status.st_mode)) fail(EISDIR);
        if (!S_ISREG(status.st_mode)) throw std::runtime_error(name_ + ": is no regular file");
    }

    /// The bytes read; 0 at the end.
    std::size_t read_into(std::span<uint8_t> room) const {
        const ssize_t count = read(descriptor_, room.data(), room.size());
        if (count < 0) fail(errno);
        return static_cast<std::size_t>(count);
    }

private:
    [[noreturn]] void fail(int error) const { throw std::system_error(error, std::generic_category(), name_); }

    std::string name_;
    int descriptor_;
};

std::string size_text(std::size_t bytes) {
    constexpr std::size_t mebibyte = std::size_t{1} << 20U;
    return bytes % mebibyte == 0 ? std::to_string(bytes / mebibyte) + " MiB" : std::to_string(bytes) + " bytes";
}

}  // namespace

std::string reason_of(const Json::exception& error) {
    const std::string text = error.what();
    const auto end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

Json checked_document(std::string_view text, std::string_view schema) try {
    Json document = Json::parse(text, limit_depth);
    if (const auto problem = schema_problem(document, Json::parse(schema)))
        throw DescriptionError(problem->place, problem->reason);
    return document;
} catch (const Json::exception& error) {
    throw DescriptionError(reason_of(error));
}

Bytes file_content(const std::filesystem::path& path, std::size_t most) {
    constexpr std::size_t step = std::size_t{64} * 1024;
    if (path.native().find('\0') != std::string::npos) throw std::runtime_error("a file's name has no NUL character");
    const RegularFile file(path);
    file.require_regular();
    Bytes content;
    for (std::size_t count = 1; count > 0;) {
        const std::size_t size = content.size();
        if (size > most) throw std::runtime_error(path.string() + ": larger than " + size_text(most));
        content.resize(size + step);
        count = file.read_into(std::span(content).subspan(size));
        content.resize(size + count);
    }
    return content;
}

Bytes bytes_of_hex(std::string_view digits) {
    Bytes bytes;
    for (std::size_t position = 0; position + 1 < digits.size(); position += 2) {
        uint8_t byte = 0;
        std::from_chars(&digits[position], &digits[position] + 2, byte, 16);
        bytes.push_back(byte);
    }
    return bytes;
}

}  // namespace vpdd::host

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace vpdd::cli {

/// A file that is replaced as a whole: it is written beside its place and then renamed. It is held from the beginning,
/// so that it also goes to its place when the process has entered another root meanwhile. A device is written to as it
/// is.
class OutputFile {
public:
    /// Throws std::runtime_error when nothing can be written there.
    explicit OutputFile(const std::string& path);
    /// What has not been put in place is gone.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// All of the content; to be called once. Throws std::runtime_error.
    void write(std::string_view content);

private:
    void open_beside(const std::string& place);
    void require(bool succeeded) const;

    std::string path_;       ///< for messages
    std::string name_;       ///< in its directory
    std::string temporary_;  ///< beside it; empty: there is none
    int directory_ = -1;
    int file_ = -1;
};

}  // namespace vpdd::cli

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>

namespace vpdd::cli {

/// The library prints traces on standard output. As long as the object lives they go to the log, not among the
/// command's own output.
class LibraryOutput {
public:
    /// @param log null: the traces are dropped. Throws std::system_error.
    explicit LibraryOutput(std::ostream* log);
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

private:
    std::ostream* log_;
    int kept_;     ///< the command's standard output
    int printed_;  ///< a file in memory
};

}  // namespace vpdd::cli

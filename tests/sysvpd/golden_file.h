// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "fake_platform.h"

namespace vpdd::test {

/// The bytes of a file under golden/. Its lines are "offset: bytes"; a line whose offset is not the number of bytes
/// before it makes the test fail.
Bytes golden_bytes(const std::string& name);

/// Whether two records are the same; the first difference otherwise.
testing::AssertionResult same_bytes(const Bytes& actual, const Bytes& expected);

}  // namespace vpdd::test

// SPDX-License-Identifier: Apache-2.0
// The PCI log in a process without the change-history database.
#include "fake_platform.h"

using namespace vpdd::test;

namespace {

TEST(PciLogWithoutDatabase, CannotBeRead) {
    PciList* handle = nullptr;
    const CaptureStdout output;

    EXPECT_EQ(access_pci_log(51, &handle), -1);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(output.text(), "");
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// A process without the readers of the change-history database: this program defines none.
#include "log_world.h"

using namespace vpdd::test;

TEST_F(LogTest, AMergeWithoutADatabaseDoesNothing) {
    write_log({});
    List current;
    EXPECT_EQ(UpdateExtendComponentStatus(nullptr, &current), 0);
    EXPECT_EQ(UpdateExtendComponentStatus(nullptr, nullptr), 0);
    EXPECT_TRUE(file_holds(log_path, ""));
    EXPECT_TRUE(platform.logged_nothing());
}

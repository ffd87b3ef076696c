// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>

#include "own_process.h"

int main(int argc, char** argv) {
    // Dates are local times.
    setenv("TZ", "UTC", 1);
    return vpdd::test::run_tests_in_own_processes(argc, argv);
}

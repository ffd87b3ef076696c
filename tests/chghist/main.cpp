// SPDX-License-Identifier: Apache-2.0
#include "own_process.h"

int main(int argc, char** argv) { return vpdd::test::run_tests_in_own_processes(argc, argv); }

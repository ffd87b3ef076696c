#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints "PASSED FAILED SKIPPED" of a JUnit result file: single test cases, not test programs."""
import sys
import xml.etree.ElementTree as ElementTree

passed = failed = skipped = 0
for case in ElementTree.parse(sys.argv[1]).iter('testcase'):
    if case.find('failure') is not None or case.find('error') is not None:
        failed += 1
    elif case.find('skipped') is not None or case.get('result') == 'skipped' or case.get('status') == 'notrun':
        skipped += 1
    else:
        passed += 1
print(passed, failed, skipped)

"""Prints each skipped test of a ctest JUnit file with the reason it gave."""

import re
import sys
import xml.etree.ElementTree as tree

for case in tree.parse(sys.argv[1]).getroot().iter("testcase"):
    if case.find("skipped") is None:
        continue
    output = case.findtext("system-out") or ""
    reason = re.search(r": Skipped\n(.*?)\n\n?\[", output, re.DOTALL)
    print(f"   skipped {case.get('name')}: {reason.group(1).strip() if reason else 'no reason given'}")

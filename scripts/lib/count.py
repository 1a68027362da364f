"""Counts the tests in JUnit reports and prints "N passed, N failed"."""

import argparse
import os
import sys
import xml.etree.ElementTree


def count(path: str) -> tuple[int, int, int]:
    """The passed, failed and skipped tests of one report, case by case.

    ctest marks a test that it did not run ("disabled", "notrun") by the case's status, pytest by a
    child element. Only a case that is neither failed nor skipped has passed.
    """
    passed = failed = skipped = 0
    for case in xml.etree.ElementTree.parse(path).iter("testcase"):
        tags = {child.tag for child in case}
        status = case.get("status", "run")
        if "failure" in tags or "error" in tags or status == "fail":
            failed += 1
        elif "skipped" in tags or status != "run":
            skipped += 1
        else:
            passed += 1
    return passed, failed, skipped


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("reports", nargs="*")
    parser.add_argument("--problems", type=int, default=0, help="failures that no report counts")
    parser.add_argument("--no-tests-wanted", action="store_true", help="no test at all is fine")
    parser.add_argument("--failures", action="store_true", help="only return whether any test failed")
    options = parser.parse_args()

    passed = failed = skipped = 0
    for path in options.reports:
        # A pattern of the shell that matched nothing stays as it is.
        if not os.path.exists(path):
            continue
        p, f, s = count(path)
        passed, failed, skipped = passed + p, failed + f, skipped + s
        if not options.failures:
            name = os.path.basename(path).removesuffix(".xml")
            print(f"{name}: {p} passed, {f} failed" + (f", {s} skipped" if s else ""))
    if options.failures:
        return 0 if failed else 1
    failed += options.problems
    print(f"{passed} passed, {failed} failed" + (f", {skipped} skipped" if skipped else ""))
    return 0 if (passed or options.no_tests_wanted) and not failed else 1


if __name__ == "__main__":
    sys.exit(main())

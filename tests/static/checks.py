"""What the checks beside this file have in common."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def finish(name, failures):
    """Tells what is wrong, and ends with 1 when anything is."""
    for failure in failures:
        print(f"{name}: {failure}", file=sys.stderr)
    sys.exit(1 if failures else 0)

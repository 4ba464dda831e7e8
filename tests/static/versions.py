"""The versions of the tools, from scripts/versions, and the names of the tools."""

import pathlib
import re

_TEXT = (pathlib.Path(__file__).resolve().parent.parent.parent / "scripts/versions").read_text()
VERSIONS = dict(re.findall(r"^([a-z_]+)=(\S+)", _TEXT, re.M))


def llvm(tool):
    """The versioned name of a tool of LLVM, e.g. "clang" or "llvm-nm"."""
    return f"{tool}-{VERSIONS['llvm_version']}"

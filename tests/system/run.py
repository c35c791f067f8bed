"""Runs tests of this folder: <program under test> <package-tool> <unittest arguments>, a test's name the last."""

import importlib
import os
import shutil
import sys
import unittest

import harness
import namespace

os.environ["PATH"] += ":/usr/sbin:/sbin"  # not on the path of every root
reason = namespace.what_is_missing()
if reason is not None:
    print(f"{__file__}:1: Skipped\n{reason}\n")  # as GoogleTest puts it, for whoever counts the tests
    sys.exit(77)  # ctest knows it as skipped
programs = [os.open(sys.argv.pop(1), os.O_RDONLY) for _ in (harness.PROGRAM, harness.TOOL)]
importlib.import_module(sys.argv[-1].split(".")[0])  # the machine of the tests may cover this folder
namespace.enter()
for program, path in zip(programs, (harness.PROGRAM, harness.TOOL)):
    shutil.copy(f"/proc/self/fd/{program}", path)
os.umask(0o022)
unittest.main(module=None)

"""Runs tests of this folder: <updater-svr> <package-tool> <updater-ctl> <unittest arguments>, a test's name the last."""

import importlib
import os
import sys
import unittest

import harness
import namespace

namespace.skip_where_tests_cannot_run()
programs = {path: os.open(sys.argv.pop(1), os.O_RDONLY) for path in (harness.PROGRAM, harness.TOOL, harness.CTL)}
importlib.import_module(sys.argv[-1].split(".")[0])  # the machine of the tests may cover this folder
namespace.enter(programs)
os.umask(0o022)
unittest.main(module=None)

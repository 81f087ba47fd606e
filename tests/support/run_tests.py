"""run_tests.py FILE [ARGUMENT...]: runs the tests of a file, which finds the arguments in sys.argv and this folder's
modules on its path."""

import importlib
import pathlib
import sys
import unittest

file = pathlib.Path(sys.argv.pop(1))
sys.path.append(str(file.parent))
unittest.main(importlib.import_module(file.stem), argv=sys.argv[:1])

# The Python client from the source tree, and the runner it drives: $ZOKRIL_RUNNER (ctest sets it)
# or the native build's.
import os
import sys

import pytest

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(TOP, "tools", "python"))

import zokril  # noqa: E402


@pytest.fixture(scope="session")
def runner_path():
    path = zokril.default_runner()
    if not os.access(path, os.X_OK):
        pytest.skip("no rilproxy-host at %s (build first, or set ZOKRIL_RUNNER)" % path)
    return path

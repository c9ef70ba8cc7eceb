# A simulated bus of two sensors for the package's tests. The test runs under
# qv_test_env (namespace, data directory, bus file and driver of its own);
# QVSIM names the simulator's command-line tool.
import os
import subprocess

import pytest


def qvsim(*args):
    subprocess.run([os.environ["QVSIM"], *map(str, args)], check=True, stdout=subprocess.DEVNULL)


@pytest.fixture(scope="session", autouse=True)
def bus():
    qvsim("create")
    qvsim("add", "AB1234", "QV442A", "--address", 5, "--firmware", "V2.03", "--due", "27-03-31")
    qvsim("add", "CD5678", "TK8410", "--address", 12)


@pytest.fixture
def sensor():
    import qvpower
    qvsim("signal", "AB1234", "cw", -20, "--freq", 1e9)
    with qvpower.open(serial="AB1234") as s:
        s.reset_state()
        yield s


import gc
import math
import os
import re
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest

import qvpower
from qvpower import Unit
from conftest import qvsim

ROOT = Path(__file__).resolve().parents[2]


def owner(serial):
    return {s.serial: s.owner for s in qvpower.sensors()}[serial]


def test_sensors_lists_the_bus_and_open_names_a_sensor_three_ways():
    listed = qvpower.sensors()
    assert [(s.serial, s.address, s.index, s.model_name, s.owner) for s in listed] == [
        ("AB1234", 5, 1, "QV442A", qvpower.FREE), ("CD5678", 12, 2, "TK8410 or TKS8410", qvpower.FREE)]
    for how in ({"serial": "cd5678"}, {"address": 12}, {"index": 2}):
        with qvpower.open(**how) as s:
            assert (s.serial, s.address, s.model) == ("CD5678", 12, 112)
            assert owner("CD5678") == qvpower.THIS_PROCESS
        assert owner("CD5678") == qvpower.FREE


def test_model_names_match_the_command_line_tool():
    table = (ROOT / "tools" / "qvpower_sensors.cpp").read_text()
    names = {int(code): name for code, name in re.findall(r'\{(\d+), "([^"]*)", "[^"]*", [0-9.e]+\}', table)}
    assert qvpower.sensor._MODELS == names


def test_a_sensor_dropped_without_closing_is_released():
    s = qvpower.open(serial="AB1234")
    assert s.firmware == "V2.03" and s.calibration_due.isoformat() == "2027-03-31"
    del s
    gc.collect()
    assert owner("AB1234") == qvpower.FREE


@pytest.mark.parametrize("how, export, code", [
    ({"serial": "ZZ9999"}, "QV_GetIndex_SN", 0),
    ({"serial": "Z"}, "QV_GetIndex_SN", -2),
    ({"address": 99}, "QV_GetIndex_Addr", 0),
    ({"index": 3}, "QV_GetSerNo_Idx", -5),
])
def test_open_of_a_missing_sensor_names_the_lookup_and_its_meaning(how, export, code):
    with pytest.raises(qvpower.NoSuchSensorError) as e:
        qvpower.open(**how)
    assert (e.value.export, e.value.code) == (export, code)
    assert str(e.value).endswith(qvpower.explain(export, code))


@pytest.mark.parametrize("name, value", [
    ("frequency", 2.4e9), ("averages", 64), ("offset_db", -3.5), ("offset_enabled", True),
    ("units", Unit.W), ("pulse_criteria_db", 1.5), ("duty_cycle_percent", 25.0),
    ("cw_reference", (-10.0, Unit.DBW)), ("single_sided_limit", (-5.0, Unit.DBM, 1)),
    ("double_sided_limit", (-20.0, 10.0, Unit.DBM, 2)), ("limit_mode", qvpower.LimitMode.DOUBLE_SIDED),
    ("sweep_time_us", 2000), ("trace_filter", qvpower.Filter.MHZ_1),
    ("trigger_source", qvpower.TriggerSource.LEVEL), ("trigger_level_dbm", -12.5),
    ("trace_averaging", qvpower.TraceAveraging.MANUAL_RESTART), ("trace_averages", 8),
    ("measurement_threshold_dbm", -30.0),
])
def test_settings_read_back_as_set(sensor, name, value):
    setattr(sensor, name, value)
    got = getattr(sensor, name)
    assert tuple(got) == value if isinstance(value, tuple) else got == value
    assert type(got) is type(value) or isinstance(value, tuple)


@pytest.mark.parametrize("name, bad", [
    ("averages", 0), ("averages", 2**40), ("averages", 2.5), ("frequency", 5e6),
    ("offset_db", 201.0), ("units", 9), ("sweep_time_us", 33), ("trace_averages", 101),
    ("trigger_source", 3), ("cw_reference", (0.0, 8)),
])
def test_refused_settings_raise_and_change_nothing(sensor, name, bad):
    before = sensor.state
    with pytest.raises(qvpower.RefusedError):
        setattr(sensor, name, bad)
    if name != "frequency":  # a frequency out of range is stored all the same
        assert sensor.state == before


def test_response_table_and_whole_states(sensor):
    sensor.response = [(1e9, 0.5), (2e9, 1.0)]
    assert sensor.response == [(1e9, 0.5), (2e9, 1.0)]
    state = sensor.state
    state.Averages, state.PlsRefDC, state.DutyeCycle = 7, 0.5, 0.5
    sensor.state = state
    assert sensor.averages == 7 and sensor.state.response_points == [(1e9, 0.5), (2e9, 1.0)]
    sensor.registers[3] = state
    assert sensor.registers[3] == state
    state.TriggerDelay_mSec = 0
    with pytest.raises(qvpower.StateRejectedError, match="TriggerDelay_mSec"):
        sensor.state = state
    sensor.averages = 9
    sensor.recall(3)
    assert sensor.averages == 7
    sensor.save_state("Bench_1")
    sensor.averages = 11
    assert "Bench_1" in sensor.named_states
    sensor.restore_state("Bench_1")
    assert sensor.averages == 7
    assert sensor.delete_state("Bench_1") and not sensor.delete_state("Bench_1")
    with pytest.raises(qvpower.RefusedError):
        sensor.save_state("no spaces")


def test_readings_against_the_simulated_signal(sensor):
    sensor.averages = 16
    assert sensor.measure_cw() == pytest.approx(-20, abs=0.3)
    sensor.double_sided_limit = (-25.0, -15.0, Unit.DBM, qvpower.DoubleRule.INSIDE_FLAGGED)
    sensor.limit_mode = qvpower.LimitMode.DOUBLE_SIDED
    assert sensor.measure_cw_pf()[1] == qvpower.LimitStatus.INSIDE
    stats = qvpower.reading_statistics(sensor.read_cw(5))
    assert stats.count == 5 and stats.min_dbm <= stats.mean_dbm <= stats.max_dbm
    qvsim("signal", "AB1234", "pulse", "--period", 84, "--width", 21, "--on", 0, "--off", -40)
    pulse = sensor.measure_pulse()
    assert (pulse.pulse, pulse.duty_cycle) == pytest.approx((0.0, 0.25), abs=0.3)
    burst = sensor.measure_burst(0, 84)
    assert burst.maximum == pytest.approx(0.0, abs=0.5) and burst.minimum < -30


def test_trace_and_its_analysis(sensor, tmp_path):
    qvsim("signal", "AB1234", "pulse", "--period", 400, "--width", 100, "--on", 0, "--off", -35,
          "--rise", 2, "--fall", 2)
    sensor.sweep_time_us = 1000
    trace = sensor.trace()
    assert len(trace.time_s) == len(trace.power_dbm) == 10000
    assert trace.time_s[-1] == pytest.approx(1e-3)
    gate = trace.gate(0)
    assert (gate.pulse_width_us, gate.prt_us, gate.duty_cycle) == pytest.approx((100, 400, 0.25), rel=0.03)
    peaks = trace.peaks()
    assert len(peaks) >= 2 and all(p.power_dbm == pytest.approx(0, abs=0.5) for p in peaks)
    alone = qvpower.find_peaks(trace.power_dbm, sensor.pulse_criteria_db, sensor.measurement_threshold_dbm,
                               sweep_time_us=trace.sweep_time_us)
    assert alone == peaks
    edges = trace.pulse_edges(peaks[0].index)
    assert (edges.right_s - edges.left_s) * 1e6 == pytest.approx(100, rel=0.05)
    marker = trace.marker(1)
    assert marker.to_peak() in [p.index for p in peaks] and marker.power_dbm > -1
    # Another trace replaces the library's analysis trace; the first is put back.
    duty = trace.duty_cycle
    sensor.sweep_time_us = 500
    second = sensor.trace()
    assert second.duty_cycle == pytest.approx(0.4, abs=0.03)
    assert trace.duty_cycle == pytest.approx(duty) == pytest.approx(0.3, abs=0.03)
    x, p = trace.ccdf()
    assert x[0] == 0 and np.all(np.diff(p) <= 0) and p[0] == pytest.approx(0.3, abs=0.03)
    assert x[-1] == pytest.approx(trace.crest_factor_db, abs=0.1)
    centres, share = trace.power_distribution()
    assert share.sum() == pytest.approx(1.0)
    ax = trace.plot()
    assert (ax.get_xlabel(), ax.get_ylabel()) == ("Time (ms)", "Power (dBm)")


def test_errors_name_the_call_and_tell_not_owned_from_other_refusals(sensor):
    other = qvpower.open(serial="CD5678")
    other.close()
    with pytest.raises(qvpower.NotOwnedError, match=r"^QV_MeasureCW\(12, &out\) returned -1: "):
        other.measure_cw()
    with pytest.raises(qvpower.RefusedError) as e:
        sensor.frequency = 3e10
    assert type(e.value) is qvpower.RefusedError and "model's range" in str(e.value)


PEER = """
import sys, qvpower
s = qvpower.open(serial=sys.argv[1])
s.averages = int(sys.argv[2])
print("held", flush=True)
sys.stdin.readline()
print(s.measure_cw(), flush=True)
"""


def peer(serial, averages=1):
    p = subprocess.Popen([sys.executable, "-c", PEER, serial, str(averages)], stdin=subprocess.PIPE,
                         stdout=subprocess.PIPE, text=True)
    assert p.stdout.readline().strip() == "held"
    return p


def test_two_processes_share_the_bus_and_a_held_sensor_stays_with_its_holder():
    holder = peer("CD5678")
    try:
        assert owner("CD5678") == qvpower.OTHER_PROCESS
        with pytest.raises(qvpower.SensorUnavailableError, match="another process holds"):
            qvpower.open(serial="CD5678")
        with qvpower.open(serial="AB1234") as mine:
            mine.measure_cw()
        out, _ = holder.communicate("\n", timeout=60)
        assert math.isfinite(float(out))
    finally:
        holder.kill()
    assert owner("CD5678") == qvpower.FREE


def test_a_call_that_waits_out_the_system_timeout_is_a_lock_timeout(sensor):
    # The peer's reading of many sampled blocks holds the lock for seconds.
    qvsim("timing", "--sampled-blocks", 1)
    holder = peer("CD5678", 16000)
    try:
        qvpower.set_system_timeout(100)
        holder.stdin.write("\n")
        holder.stdin.flush()
        time.sleep(1.0)
        with pytest.raises(qvpower.LockTimeoutError):
            sensor.averages
        holder.communicate(timeout=60)
    finally:
        holder.kill()
        qvsim("timing", "--sampled-blocks", 0)
        qvpower.set_system_timeout(500)


def test_a_missing_library_names_the_places_tried(tmp_path):
    env = dict(os.environ, QV_API2_LIBRARY=str(tmp_path / "nothing.so"))
    p = subprocess.run([sys.executable, "-c", "import qvpower; qvpower.sensors()"], env=env,
                       capture_output=True, text=True)
    assert "LibraryNotFoundError" in p.stderr and str(tmp_path / "nothing.so") in p.stderr


@pytest.mark.parametrize("site, named", [
    ("lib/python3/dist-packages", None), ("lib/python3.11/site-packages", None),
    ("elsewhere", "libqv_api2.so.1")])   # a bare name, taken from the working folder
def test_an_installed_package_finds_the_library_of_its_prefix_or_the_one_named(tmp_path, site, named):
    import shutil
    shutil.copytree(ROOT / "python" / "qvpower", tmp_path / site / "qvpower",
                    ignore=shutil.ignore_patterns("__pycache__", "*.so*"))
    library = tmp_path / "lib" / "libqv_api2.so.1"
    library.parent.mkdir(exist_ok=True)
    shutil.copyfile(os.environ["QV_API2_LIBRARY"], library)
    env = {k: v for k, v in os.environ.items() if k not in ("QV_API2_LIBRARY", "LD_LIBRARY_PATH")}
    env.update(PYTHONPATH=str(tmp_path / site), **({"QV_API2_LIBRARY": named} if named else {}))
    p = subprocess.run([sys.executable, "-c", "import qvpower; print(qvpower.library_path())"],
                       env=env, capture_output=True, text=True, cwd=library.parent)
    assert p.returncode == 0, p.stderr
    assert p.stdout.strip() == str(library)


@pytest.mark.parametrize("script, args, check", [
    ("cw_logger.py", ["AB1234", "--count", "3", "--csv", "{tmp}/cw.csv"],
     lambda tmp: len((tmp / "cw.csv").read_text().splitlines()) == 4),
    ("pulse_characterisation.py", ["AB1234", "--png", "{tmp}/pulse.png"],
     lambda tmp: (tmp / "pulse.png").read_bytes()[:4] == b"\x89PNG"),
])
def test_examples_run_against_the_simulator(tmp_path, script, args, check):
    qvsim("signal", "AB1234", "pulse", "--period", 400, "--width", 100, "--on", 0, "--off", -35)
    argv = [a.format(tmp=tmp_path) for a in args]
    p = subprocess.run([sys.executable, str(ROOT / "examples" / "python" / script), *argv],
                       capture_output=True, text=True, timeout=120)
    assert p.returncode == 0, p.stderr
    assert check(tmp_path)

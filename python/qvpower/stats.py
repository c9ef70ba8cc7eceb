"""Statistics the library leaves to the application, computed here with numpy:
the power distribution and CCDF of a trace, and figures of repeated readings.
Powers are averaged in watts, as the library averages them."""
from collections import namedtuple

import numpy as np

ReadingStatistics = namedtuple("ReadingStatistics",
                               "count mean_dbm min_dbm max_dbm std_db spread_db")


def _finite(power_dbm):
    p = np.asarray(power_dbm, dtype=float).ravel()
    p = p[np.isfinite(p)]
    if p.size == 0:
        raise ValueError("no finite power values")
    return p


def mean_dbm(power_dbm):
    """Mean power of dBm values, averaged in watts."""
    p = _finite(power_dbm)
    return float(10.0 * np.log10(np.mean(10.0 ** (p / 10.0))))


def ccdf(power_dbm, step_db=0.1):
    """Complementary cumulative distribution: for each level x (dB above the
    mean power) the share of points whose power lies above mean + x.
    Returns (x_db, probability), x from 0 up to the crest factor in `step_db` steps."""
    p = _finite(power_dbm)
    relative = np.sort(p - mean_dbm(p))
    top = max(float(relative[-1]), 0.0)
    x = np.arange(0.0, top + step_db, step_db)
    above = p.size - np.searchsorted(relative, x, side="right")
    return x, above / p.size


def power_distribution(power_dbm, bin_db=0.5):
    """Share of the points in each power bin of `bin_db`: (bin centres dBm, probability)."""
    p = _finite(power_dbm)
    low = np.floor(p.min() / bin_db) * bin_db
    edges = np.arange(low, p.max() + bin_db, bin_db)
    if edges.size < 2:
        edges = np.array([low, low + bin_db])
    counts, edges = np.histogram(p, bins=edges)
    return (edges[:-1] + edges[1:]) / 2.0, counts / p.size


def reading_statistics(readings_dbm):
    """Count, mean (in watts), extremes, standard deviation (dB) and spread of readings in dBm."""
    p = _finite(readings_dbm)
    return ReadingStatistics(int(p.size), mean_dbm(p), float(p.min()), float(p.max()),
                             float(p.std(ddof=1)) if p.size > 1 else 0.0, float(p.max() - p.min()))

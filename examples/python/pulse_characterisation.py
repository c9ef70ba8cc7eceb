#!/usr/bin/env python3
"""Characterises a pulsed signal: one trace, the pulse figures of a gate over
it, its CCDF, and a plot of both saved to a PNG file.

    pulse_characterisation.py SERIAL [--sweep-us US] [--frequency HZ] [--png FILE]
"""
import argparse
import sys

import matplotlib

matplotlib.use("Agg")  # files only: no display needed
import matplotlib.pyplot as plt  # noqa: E402

import qvpower  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("serial")
    parser.add_argument("--sweep-us", type=int, default=1000, help="sweep time, µs")
    parser.add_argument("--frequency", type=float, default=1e9, help="Hz")
    parser.add_argument("--png", default="pulse.png")
    args = parser.parse_args()

    try:
        with qvpower.open(serial=args.serial) as sensor:
            sensor.frequency = args.frequency
            sensor.sweep_time_us = args.sweep_us
            trace = sensor.trace()
            figures = trace.gate(0).measurements()
            peaks = trace.peaks(limit=20)
    except qvpower.QVError as e:
        sys.exit(f"pulse_characterisation: {e}")

    for name, value in figures.items():
        print(f"{name:>16}: {'not found' if value is None else f'{value:.4g}'}")
    print(f"{'peaks':>16}: {len(peaks)}")

    fig, (top, bottom) = plt.subplots(2, 1, figsize=(8, 7))
    trace.plot(ax=top)
    for p in peaks:
        top.axvline(p.time_s * 1e6 if trace.time_s[-1] < 1e-3 else p.time_s * 1e3, color="r", alpha=0.3)
    top.set_title(f"{args.serial}: {args.sweep_us} µs sweep at {args.frequency / 1e9:g} GHz")
    x, probability = trace.ccdf()
    bottom.semilogy(x, probability)
    bottom.set_xlabel("Power above average (dB)")
    bottom.set_ylabel("Probability (CCDF)")
    bottom.grid(True, which="both", alpha=0.3)
    fig.tight_layout()
    fig.savefig(args.png, dpi=100)
    print(f"plot written to {args.png}")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Logs CW readings of one sensor to a CSV file: time, reading and unit.

    cw_logger.py SERIAL [--count N] [--interval S] [--frequency HZ] [--csv FILE]
"""
import argparse
import csv
import sys
import time

import qvpower


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("serial")
    parser.add_argument("--count", type=int, default=10, help="readings to take")
    parser.add_argument("--interval", type=float, default=0.0, help="seconds between readings")
    parser.add_argument("--frequency", type=float, default=1e9, help="Hz")
    parser.add_argument("--averages", type=int, default=16)
    parser.add_argument("--csv", default="-", help="output file ('-': standard output)")
    args = parser.parse_args()

    out = sys.stdout if args.csv == "-" else open(args.csv, "w", newline="")
    try:
        with qvpower.open(serial=args.serial) as sensor:
            sensor.frequency = args.frequency
            sensor.averages = args.averages
            unit = sensor.units.label
            writer = csv.writer(out)
            writer.writerow(["time_s", f"power_{unit}"])
            start = time.monotonic()
            for i in range(args.count):
                if i:
                    time.sleep(args.interval)
                writer.writerow([f"{time.monotonic() - start:.3f}", f"{sensor.measure_cw():.3f}"])
    except qvpower.QVError as e:
        sys.exit(f"cw_logger: {e}")
    finally:
        if out is not sys.stdout:
            out.close()


if __name__ == "__main__":
    main()

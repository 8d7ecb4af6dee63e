#!/usr/bin/env python3
"""Measures what the C++ interface costs a unit that includes it: the processor time of the compiler, compared with that for five headers
of the standard library alone. The goal is a ratio of at most 1.6.

    bench/compile_cost.py [COMPILER] [SAMPLES]    default: g++, and 40 samples of each, in random order
"""

import os
import pathlib
import random
import resource
import statistics
import subprocess
import sys
import tempfile

GOAL = 1.6
INCLUDE = pathlib.Path(__file__).resolve().parents[1] / "include"
STANDARD = ("string", "vector", "functional", "variant", "chrono")


def cost(compiler, source):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run([compiler, "-std=c++17", "-O2", "-I", INCLUDE, "-c", source, "-o", os.devnull], check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def interval(values):
    """The values between which the median lies with 95 % confidence, by their order."""
    values = sorted(values)
    distance = 0.98 * len(values) ** 0.5
    middle = len(values) / 2
    return values[max(0, round(middle - distance))], values[min(len(values) - 1, round(middle + distance))]


def main(compiler="g++", samples="40"):
    with tempfile.TemporaryDirectory() as folder:
        sources = [pathlib.Path(folder) / name for name in ("interface.cpp", "standard.cpp")]
        sources[0].write_text("#include <kvo_hws/kvo_hws.hpp>\n")
        sources[1].write_text("".join(f"#include <{header}>\n" for header in STANDARD))
        pairs = []
        for _ in range(max(20, int(samples))):
            times = {source: cost(compiler, source) for source in random.sample(sources, 2)}
            pairs.append([times[source] for source in sources])
    ratios = [interface / standard for interface, standard in pairs]
    median = statistics.median(ratios)
    low, high = interval(ratios)
    print(f"{compiler}: kvo_hws.hpp {statistics.median(p[0] for p in pairs):.3f} s, standard headers {statistics.median(p[1] for p in pairs):.3f} s")
    print(f"ratio {median:.2f} (95 %: {low:.2f} to {high:.2f}), goal {GOAL}: {'met' if median <= GOAL else 'MISSED'}")
    return 0 if median <= GOAL else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

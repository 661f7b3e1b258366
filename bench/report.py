"""Prints the table of ratios: report.py BARS.tsv RESULT... with results from both ABIs.

A result is a JSON file of Google Benchmark, in a folder bench_ABI, or a file of counted
instructions with the columns of the bars.
"""

import json
import statistics
import sys
from pathlib import Path


def rows(path):
    for line in path.read_text().splitlines():
        if line and not line.startswith("#"):
            workload, peer, number = line.split("\t")
            yield workload, peer, float(number)


def medians(path):
    """Time of each (workload, subject) in ns, the median of its repetitions.

    Processor time, unless the benchmark asks for real time because others do the work.
    """
    times = {}
    for run in json.loads(path.read_text())["benchmarks"]:
        if run["run_type"] == "iteration":
            workload, subject, *settings = run["run_name"].split("/")
            clock = "real_time" if "real_time" in settings else "cpu_time"
            times.setdefault((workload, subject), []).append(run[clock])
    return {name: statistics.median(values) for name, values in times.items()}


def main(bars, results):
    print("| Workload | Build | norvaks | Beside | Ratio | Bar | |")
    print("|---|---|---|---|---|---|---|")
    timed = {}
    for path in results:
        if path.suffix == ".json":
            timed.setdefault(path.parent.name.removeprefix("bench_"), {}).update(medians(path))
    counted = {row[:2]: row[2] for path in results if path.suffix == ".tsv" for row in rows(path)}
    for workload, peer, bar in rows(bars):
        verdict = lambda value: "met" if value <= bar else "MISSED"
        if peer.startswith("instructions "):
            if (workload, peer) in counted:
                count = round(counted[workload, peer])  # the loop around it is two in a hundred
                print(f"| {workload} | {peer.split()[1]} | {count} instructions | | | "
                      f"{bar:g} instructions | {verdict(count)} |")
            continue
        for build, times in timed.items():
            ours, theirs = times[workload, "norvaks"], times[workload, peer]
            print(f"| {workload} | {build} | {ours:.1f} ns | {peer} {theirs:.1f} ns | "
                  f"{ours / theirs:.{2 if bar >= 0.5 else 3}f} | {bar:g} | {verdict(ours / theirs)} |")


if __name__ == "__main__":
    main(Path(sys.argv[1]), [Path(name) for name in sys.argv[2:]])

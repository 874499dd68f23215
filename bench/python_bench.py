"""The Python module's throughput on a corpus, as ratios taken within each round:

- index_paths(jobs=1) against `tarnwick-md index -j 1` (goal: within 10%);
- index_paths(jobs=2) against index_paths(jobs=1);
- the Dask path with 2 local workers against `tarnwick-md index -j 2` (goal: within 25%): whole
  runs with the LocalCluster's start and stop, and runs on a cluster already up.

usage: python_bench.py TARNWICK_MD CORPUS [ROUNDS]   (PYTHONPATH: the built module)
"""

import os
import statistics
import subprocess
import sys
import tempfile
import time

import tarnwick_markdown as tm
from tarnwick_markdown import dask as tmd


def timed(work) -> float:
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def main() -> int:
    binary, corpus = sys.argv[1], sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    repositories = sorted(os.path.join(corpus, d) for d in os.listdir(corpus)
                          if os.path.isdir(os.path.join(corpus, d)))
    size = sum(os.path.getsize(os.path.join(d, f)) for r in repositories
               for d, _, fs in os.walk(r) for f in fs if f.lower().endswith((".md", ".markdown")))

    def command(jobs):
        subprocess.run([binary, "index", "--no-config", "-j", str(jobs), *repositories], check=True,
                       stdout=subprocess.DEVNULL)

    def module(jobs):
        for _ in tm.index_paths(repositories, jobs=jobs):
            pass

    def on_dask(scheduler=None):
        with tempfile.TemporaryDirectory() as out:
            tmd.run(repositories, out, scheduler=scheduler, workers=2)

    from dask.distributed import LocalCluster

    def on_dask_up():
        # The cluster starts before the clock and stops after it, and is not running while the
        # other figures are taken.
        with LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                          dashboard_address=":0") as cluster:
            return timed(lambda: on_dask(cluster.scheduler_address))

    ratios = {"module -j1 / command -j1": [], "module -j2 speed-up over -j1": [],
              "dask 2 workers / command -j2": [],
              "dask on a cluster already up / command -j2": []}
    for round_ in range(rounds):
        t = {
            "command1": timed(lambda: command(1)),
            "module1": timed(lambda: module(1)),
            "module2": timed(lambda: module(2)),
            "command2": timed(lambda: command(2)),
            "dask": timed(on_dask),
            "dask_up": on_dask_up(),
        }
        ratios["module -j1 / command -j1"].append(t["module1"] / t["command1"])
        ratios["module -j2 speed-up over -j1"].append(t["module1"] / t["module2"])
        ratios["dask 2 workers / command -j2"].append(t["dask"] / t["command2"])
        ratios["dask on a cluster already up / command -j2"].append(t["dask_up"] / t["command2"])
        print(f"round {round_ + 1}: " + ", ".join(
            f"{k} {v:.2f} s ({size / v / 1e6:.1f} MB/s)" for k, v in t.items()), flush=True)
    for name, values in ratios.items():
        print(f"{name}: median {statistics.median(values):.3f} "
              f"(range {min(values):.3f} to {max(values):.3f})")
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""The index store on a corpus taken as one root, as ratios and times taken within each round:

- a cold `index --db` against plain `index` (goal: at most 1.15 times its time);
- a warm update of the unchanged corpus (goal: at least 30 times faster than cold, at most
  100 ms on 2 cores: the cost of walking and stat-ing);
- an update after editing 10 files (goal: at most 150 ms);
- the store's size against the JSON Lines (goal: at most 1.5 times);
- `refs` and `symbols`, each one process from start to exit (goal: at most 20 ms).

The corpus is copied to a scratch folder (the edits must not touch it), with its modification
times, and left three seconds before it is indexed, so that its files' times are old enough for
the store to trust them, as a repository's files are.

usage: store_bench.py TARNWICK_MD CORPUS [ROUNDS] [JOBS]
"""

import os
import shutil
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

QUERY_RUNS = 21
EDITED = 10


def timed(args) -> float:
    start = time.perf_counter()
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def markdown_files(root):
    return sorted(os.path.join(d, f) for d, _, fs in os.walk(root) for f in fs
                  if f.lower().endswith((".md", ".markdown")))


def main() -> int:
    binary, corpus = os.path.abspath(sys.argv[1]), sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    jobs = sys.argv[4] if len(sys.argv) > 4 else str(os.cpu_count())
    scratch = tempfile.mkdtemp(prefix="tarnwick-bench-store-")
    try:
        root = os.path.join(scratch, "corpus")
        shutil.copytree(corpus, root, symlinks=True)
        db = os.path.join(scratch, "index.db")
        files = markdown_files(root)
        edited = files[:: len(files) // EDITED][:EDITED]
        originals = {path: open(path, "rb").read() for path in edited}
        time.sleep(3.1)

        index = [binary, "index", "-q", "-j", jobs, root]
        update = [binary, "index", "-q", "-j", jobs, "--db", db, root]
        jsonl = len(subprocess.run(index, check=True, capture_output=True).stdout)
        timed(index)
        figures = {name: [] for name in (
            "plain index (s)", "cold index --db (s)", "cold / plain", "warm update (ms)",
            "cold / warm", "update after 10 edits (ms)", "store / JSON Lines",
            "refs (ms)", "refs with a fragment (ms)", "symbols (ms)")}
        for round_ in range(rounds):
            for suffix in ("", "-wal", "-shm"):
                if os.path.exists(db + suffix):
                    os.remove(db + suffix)
            plain = timed(index)
            cold = timed(update)
            warm = timed(update)
            for path in edited:
                with open(path, "ab") as f:
                    f.write(b"\n## Edited\n\nA [link](README.md#edited).\n")
            after_edits = timed(update)
            size = os.path.getsize(db)
            with sqlite3.connect(db) as connection:
                # The files and the anchor most linked to: the longest answers.
                target, = connection.execute(
                    "SELECT target FROM refs WHERE target IS NOT NULL GROUP BY target "
                    "ORDER BY count(*) DESC LIMIT 1").fetchone()
                place, heading = connection.execute(
                    "SELECT target, qualifier FROM refs WHERE target IS NOT NULL AND "
                    "qualifier IS NOT NULL GROUP BY 1, 2 ORDER BY count(*) DESC LIMIT 1").fetchone()
            queries = {
                "refs (ms)": [binary, "refs", "--db", db, target],
                "refs with a fragment (ms)": [binary, "refs", "--db", db, f"{place}#{heading}"],
                "symbols (ms)": [binary, "symbols", "--db", db, "install"],
            }
            for name, args in queries.items():
                quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
                subprocess.run(args, **quiet)
                runs = []
                for _ in range(QUERY_RUNS):
                    start = time.perf_counter()
                    subprocess.run(args, check=True, **quiet)
                    runs.append(time.perf_counter() - start)
                figures[name].append(1000 * statistics.median(runs))
            figures["plain index (s)"].append(plain)
            figures["cold index --db (s)"].append(cold)
            figures["cold / plain"].append(cold / plain)
            figures["warm update (ms)"].append(1000 * warm)
            figures["cold / warm"].append(cold / warm)
            figures["update after 10 edits (ms)"].append(1000 * after_edits)
            figures["store / JSON Lines"].append(size / jsonl)
            print(f"round {round_ + 1}: plain {plain:.2f} s, cold {cold:.2f} s "
                  f"({cold / plain:.3f}), warm {1000 * warm:.0f} ms, 10 edits "
                  f"{1000 * after_edits:.0f} ms, store {size / 1e6:.1f} MB "
                  f"({size / jsonl:.2f} of {jsonl / 1e6:.1f} MB), refs {target}", flush=True)
            for path, text in originals.items():
                with open(path, "wb") as f:
                    f.write(text)
            time.sleep(3.1)
        megabytes = sum(os.path.getsize(path) for path in files) / 1e6
        print(f"== {len(files)} files, {megabytes:.1f} MB, -j {jobs}, {rounds} rounds: "
              "median (range)")
        for name, values in figures.items():
            print(f"{name}: {statistics.median(values):.3f} "
                  f"({min(values):.3f} to {max(values):.3f})")
    finally:
        shutil.rmtree(scratch)
    return 0


if __name__ == "__main__":
    sys.exit(main())

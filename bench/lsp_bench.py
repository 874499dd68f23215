"""The language server against VS Code's Markdown server, both driven by the peer study's client
harness (drive.mjs) as an editor drives them. Each round runs the harness once against ours, then
once against the peer, on the same workspace, so each ratio peer/ours is taken within a round.

Prints one Markdown table per workspace: each step's median over the rounds (min-max) for both
servers, the median ratio, and the counts that show both answered the same question; the table
of the whole corpus also shows the goals. Exits with 1 when a run failed or our server left a
step unanswered, after saying which.

The harness asks `workspace/symbol` once, cold; on the whole corpus this script also times it
warm on our server, driven by the tests' client: the same query and a few others, asked again
after the first answer.

usage: lsp_bench.py HARNESS OUR_SERVER PEER_SERVER RUNS RESULTS CORPUS WORKSPACE...
  (the servers are commands the harness splits on spaces; RESULTS gets each run's JSON)
"""

import json
import os
import platform
import statistics
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests" / "lsp"))
from lsp_client import Client  # noqa: E402  (the tests' client, found by path)

# (row, the harness's name for the step, our goal on the whole corpus in ms or None); each goal
# is also at least RATIO_GOAL times faster than the peer in the same round.
STEPS = [
    ("initialize", "initialize", None),
    ("documentSymbol", "documentSymbol", None),
    ("references, first (ready)", "references (first: reads the workspace)", 800),
    ("references, again", "references (again)", 4),
    ("workspace/symbol", "workspace/symbol", 500),
    ("rename", "rename", 12),
    ("diagnostics after an edit", "diagnostics after an edit", 16),
]
PEAK_MEMORY_GOAL_MB = 300
WARM_SYMBOLS_GOAL_MS = 20
# Queries of the warm workspace/symbol figure, besides the first word of the target heading.
WARM_QUERIES = ["install", "config", "api", "tmpl", "x"]
WARM_REPEATS = 5
RATIO_GOAL = 10
# A run that takes longer has hung: a run of the peer on the whole corpus takes some 15 s.
RUN_TIMEOUT_S = 600


def load_average() -> str:
    with open("/proc/loadavg", encoding="ascii") as f:
        return f.read().split()[0]


def machine() -> str:
    with open("/proc/cpuinfo", encoding="utf-8") as f:
        models = [line.split(":", 1)[1].strip() for line in f if line.startswith("model name")]
    node = subprocess.run(["node", "--version"], capture_output=True, text=True, check=True)
    return (f"{os.cpu_count()} cores ({models[0] if models else platform.machine()}), "
            f"Linux {platform.release()}, Node {node.stdout.strip()}")


def drive(harness: str, server: str, workspace: str, out: str) -> tuple[dict | None, str]:
    """One run of the harness; its result, or None and what it printed."""
    command = ["node", harness, "--server", server, "--workspace", workspace, "--runs", "1",
               "--json", out]
    try:
        run = subprocess.run(command, capture_output=True, text=True, timeout=RUN_TIMEOUT_S)
    except subprocess.TimeoutExpired as e:
        return None, f"no answer after {RUN_TIMEOUT_S} s\n{e.stdout or ''}{e.stderr or ''}"
    if run.returncode != 0:
        return None, f"exit status {run.returncode}\n{run.stdout}{run.stderr}"
    with open(out, encoding="utf-8") as f:
        document = json.load(f)
    return {**document["results"][0], "summary": document["summary"]}, run.stdout


def milliseconds(value: float) -> str:
    return f"{value:,.1f}" if value < 10 else f"{value:,.0f}"


def spread(values: list[float], show) -> str:
    median = show(statistics.median(values))
    low, high = show(min(values)), show(max(values))
    return median if low == high else f"{median} ({low}–{high})"


def factor(value: float) -> str:
    return f"{value:.1f}×" if value < 10 else f"{value:,.0f}×"


def unanswered(run: dict) -> list[str]:
    """The steps a run of our server did not answer as the question asks."""
    failures = []
    if run["references"] == 0:
        failures.append("references found none")
    if run["times"]["rename"] is None or run["rename_edits"] == 0:
        failures.append("rename gave no edits")
    if not run["broken_link_reported"]:
        failures.append("the broken link added by the edit was not reported")
    return failures


def plural(count: int, noun: str) -> str:
    return f"{count:,} {noun}" + ("" if count == 1 else "s")


def counts(runs: list[dict], show) -> str:
    seen = []
    for run in runs:
        if show(run) not in seen:
            seen.append(show(run))
    return " / ".join(seen)


def goal_cell(ours: float, ratio: float, goal: float | None, unit: str,
              ratio_goal: float | None) -> str:
    if goal is None:
        return ""
    met = ours <= goal and (ratio_goal is None or ratio >= ratio_goal)
    wanted = f"≤ {goal:,} {unit}" + ("" if ratio_goal is None else f", ≥ {ratio_goal}×")
    return f"{wanted}: {'met' if met else 'missed'}"


def table(label: str, ours: list[dict], peer: list[dict], with_goals: bool) -> list[str]:
    summary = ours[0]["summary"]
    target = summary["target"]
    lines = [
        f"### {label}: {summary['files']:,} Markdown files, {plural(len(ours), 'round')}",
        "",
        f"Target: `{target['heading']}` in `{target['file']}`, named by "
        f"{plural(target['links_by_fragment'], 'link')} with a fragment. Times in ms.",
        "",
        "| step | tarnwick-md lsp | VS Code's server | peer/ours |"
        + (" goal |" if with_goals else ""),
        "|---|---:|---:|---:|" + ("---|" if with_goals else ""),
    ]
    pairs = list(zip(ours, peer))

    def row(name, mine, theirs, show, goal, unit, ratio_goal):
        ratios = [t / m for m, t in zip(mine, theirs) if m]
        cells = [name, spread(mine, show), spread(theirs, show), spread(ratios, factor)]
        if with_goals:
            cells.append(goal_cell(statistics.median(mine), statistics.median(ratios), goal,
                                   unit, ratio_goal))
        lines.append("| " + " | ".join(cells) + " |")

    for name, step, goal in STEPS:
        mine = [o["times"][step] for o, _ in pairs]
        theirs = [p["times"][step] for _, p in pairs]
        if None in mine or None in theirs:
            cells = [name, "failed" if None in mine else "",
                     "failed" if None in theirs else "", "–"]
            if with_goals:
                cells.append("missed" if goal is not None and None in mine else "")
            lines.append("| " + " | ".join(cells) + " |")
            continue
        row(name, mine, theirs, milliseconds, goal, "ms", RATIO_GOAL)
    # Memory has a bound of its own, not a tenth of the peer's.
    row("peak RSS, MB", [o["peak_rss_mb"] for o, _ in pairs], [p["peak_rss_mb"] for _, p in pairs],
        lambda mb: f"{mb:,.0f}", PEAK_MEMORY_GOAL_MB, "MB", None)
    for name, show in [
        ("references found", lambda r: f"{r['references']:,}"),
        ("workspace symbols found", lambda r: f"{r['workspace_symbols']:,}"),
        ("rename: edits (files)", lambda r: f"{r['rename_edits']:,} ({r['rename_files']:,})"),
        ("diagnostics after the edit",
         lambda r: f"{r['diagnostics_after_edit']:,} ({r['diagnostics']})"),
        ("broken link reported", lambda r: "yes" if r["broken_link_reported"] else "no"),
    ]:
        lines.append(f"| {name} | {counts(ours, show)} | {counts(peer, show)} | |"
                     + (" |" if with_goals else ""))
    return lines


def warm_symbols(our_server: str, workspace: str, target: dict) -> list[float]:
    """Times in ms of workspace/symbol asked warm on our server: each query once cold, then
    WARM_REPEATS more times, after the workspace is read."""
    binary, *args = our_server.split(" ")
    client = Client(binary, *args[1:], cwd=workspace)
    try:
        uri = Path(workspace, target["file"]).as_uri()
        root = Path(workspace).as_uri()
        client.initialize(rootUri=root, workspaceFolders=[{"uri": root, "name": "workspace"}])
        client.open(uri, Path(workspace, target["file"]).read_text(encoding="utf-8"))
        client.result("textDocument/references", {
            "textDocument": {"uri": uri}, "position": {"line": 0, "character": 0},
            "context": {"includeDeclaration": False}})
        times = []
        for query in [target["heading"].lstrip("#").split()[0], *WARM_QUERIES]:
            client.result("workspace/symbol", {"query": query})
            for _ in range(WARM_REPEATS):
                start = time.perf_counter()
                client.result("workspace/symbol", {"query": query})
                times.append((time.perf_counter() - start) * 1000)
        client.exit()
        return times
    finally:
        client.kill()


def rounds_on(harness: str, servers: dict[str, str], workspace: str, rounds: int, label: str,
              folder: str) -> tuple[dict[str, list[dict]], bool]:
    """Each server's runs, taken in turn round by round up to the first run that fails, and
    whether every run answered every step."""
    runs = {name: [] for name in servers}
    answered = True
    for round_ in range(1, rounds + 1):
        for name, server in servers.items():
            run, output = drive(harness, server, workspace,
                                os.path.join(folder, f"{name}-{round_}.json"))
            if run is None:
                print(f"{label}, round {round_}: the harness failed against {server}: {output}",
                      file=sys.stderr)
                return runs, False
            runs[name].append(run)
            if name == "ours" and unanswered(run):
                print(f"{label}, round {round_}: tarnwick-md lsp: {'; '.join(unanswered(run))}. "
                      f"The harness printed:\n{output}", file=sys.stderr)
                answered = False
    return runs, answered


def main() -> int:
    harness, our_server, peer_server, rounds, results, corpus, *workspaces = sys.argv[1:]
    servers = {"ours": our_server, "peer": peer_server}
    all_answered = True
    print(f"Machine: {machine()}. Each round runs ours, then the peer.\n")
    for workspace in workspaces:
        whole_corpus = os.path.realpath(workspace) == os.path.realpath(corpus)
        label = "The whole corpus" if whole_corpus else os.path.basename(workspace)
        folder = os.path.join(results, os.path.basename(workspace))
        os.makedirs(folder, exist_ok=True)
        load_before = load_average()
        runs, answered = rounds_on(harness, servers, workspace, int(rounds), label, folder)
        all_answered = all_answered and answered
        done = min(len(runs["ours"]), len(runs["peer"]))
        if done:
            print("\n".join(table(label, runs["ours"][:done], runs["peer"][:done], whole_corpus)))
            if whole_corpus:
                warm = warm_symbols(our_server, workspace, runs["ours"][0]["summary"]["target"])
                met = statistics.median(warm) <= WARM_SYMBOLS_GOAL_MS
                print(f"\nworkspace/symbol warm, ours: {spread(warm, milliseconds)} ms over "
                      f"{len(warm)} requests of {len(WARM_QUERIES) + 1} queries (goal "
                      f"≤ {WARM_SYMBOLS_GOAL_MS} ms: {'met' if met else 'missed'})")
            print(f"\nLoad average (1 min): {load_before} before, {load_average()} after.\n")
    return 0 if all_answered else 1


if __name__ == "__main__":
    sys.exit(main())

"""Baselines on the corpus: a baseline written for every repository, then links broken at random
in copies of them, with a line added above; exactly the broken links are reported, as new
problems, and every known problem stays known. TARNWICK_SEED picks other links (default 21)."""

import json
import os
import random
import re
import shutil
import subprocess
from pathlib import Path

BROKEN = 20

# An inline link to a Markdown file by a relative path: "](path.md)" or "](path.md#anchor)".
INLINE_LINK = re.compile(r"\]\(((?![a-z][a-z0-9+.-]*:|/|#)[^()\s<>%\\]+?\.md)(#[^()\s]*)?\)")
FENCE = re.compile(r"^ {0,3}(```|~~~)")


def check(binary, repository, *arguments):
    """The problems and the summary of `tarnwick-md check` of a repository."""
    out = subprocess.run([binary, "check", "--no-config", "--format", "json", *arguments,
                          str(repository)], capture_output=True, text=True)
    assert out.returncode in (0, 1), out.stderr
    return [json.loads(line) for line in out.stdout.splitlines()], out.stderr.strip()


def front_matter_lines(lines) -> int:
    """How many lines YAML front matter takes at the top, which GitHub shows as a table."""
    if not lines or lines[0].rstrip() != "---":
        return 0
    for index in range(1, len(lines)):
        if lines[index].rstrip() in ("---", "..."):
            return index + 1
    return 0


def candidates(repository: Path):
    """(file, line index, match) of the inline links that lead to a Markdown file that exists,
    outside code, comments and raw HTML, as a person would pick them to break."""
    found = []
    for file in sorted(repository.rglob("*.md")):
        if any(part.startswith(".") or part == "node_modules"
               for part in file.relative_to(repository).parts):
            continue
        lines = file.read_text(encoding="utf-8", errors="surrogateescape").split("\n")
        in_fence = in_comment = False
        for index, line in enumerate(lines):
            if index < front_matter_lines(lines):
                continue
            if FENCE.match(line):
                in_fence = not in_fence
                continue
            if "<!--" in line:
                in_comment = "-->" not in line.split("<!--")[-1]
                continue
            if in_comment:
                in_comment = "-->" not in line
                continue
            if in_fence or line.startswith(("    ", "\t", "<")) or "`" in line:
                continue
            for match in INLINE_LINK.finditer(line):
                if (file.parent / match.group(1)).is_file():
                    found.append((file, index, match))
    return found


def test_a_baseline_per_repository_reports_exactly_the_links_broken_since(tarnwick_md, corpus,
                                                                           tmp_path):
    repositories = sorted(p for p in corpus.iterdir() if p.is_dir())
    known = {}
    for repository in repositories:
        baseline = tmp_path / f"{repository.name}.json"
        _, summary = check(tarnwick_md, repository, "--write-baseline", str(baseline))
        known[repository.name] = len(json.loads(baseline.read_text())["problems"])
        assert summary.endswith(f"written to {baseline} as known")

    copies = tmp_path / "copies"
    shutil.copytree(corpus, copies, symlinks=True)
    copied = [copies / repository.name for repository in repositories]
    # A repository at random, then one of its links, so that the links come from many.
    pools = {r.name: [(r.name, *c) for c in candidates(r)] for r in copied}
    names = [name for name, pool in pools.items() if pool]
    rng = random.Random(int(os.environ.get("TARNWICK_SEED", "21")))
    chosen = []
    while len(chosen) < BROKEN:
        candidate = rng.choice(pools[rng.choice(names)])
        if candidate not in chosen:
            chosen.append(candidate)
    edits = {}  # file -> its lines, edited
    broken = set()
    # Links are broken from the end of a line, so that the places of those before it hold.
    for number, (name, file, index, match) in enumerate(
            sorted(chosen, key=lambda c: (str(c[1]), c[2], -c[3].start())), 1):
        lines = edits.setdefault(
            file, file.read_text(encoding="utf-8", errors="surrogateescape").split("\n"))
        target = match.group(1)[:-3] + f"-broken-{number}.md"
        lines[index] = lines[index][:match.start(1)] + target + lines[index][match.end(1):]
        broken.add((name, str(file.relative_to(copies / name)), target + (match.group(2) or "")))
    for file, lines in edits.items():
        # Lines above a known problem move it: a blank line is added at the top of the file
        # too (after its front matter), where it changes no block.
        top = front_matter_lines(lines)
        file.write_text("\n".join(lines[:top] + [""] + lines[top:]), encoding="utf-8",
                        errors="surrogateescape")

    reported = set()
    for repository in copied:
        baseline = tmp_path / f"{repository.name}.json"
        new, summary = check(tarnwick_md, repository, "--baseline", str(baseline))
        reported.update((repository.name, os.path.relpath(p["path"], repository), p["target"])
                        for p in new)
        assert all(p["code"] == "missing-file" for p in new), new
        assert summary.endswith(f"; {known[repository.name]:,} known, 0 fixed"), summary
        print(f"{repository.name}: {known[repository.name]} known, {len(new)} new")
    assert reported == broken

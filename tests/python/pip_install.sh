#!/usr/bin/env bash
# The package as a user installs it: a clean clone of HEAD, set up by scripts/setup, then
# `pip install .` and `pip wheel .` offline in a fresh virtual environment that sees Debian's
# packages (the build backend, pybind11). The installed module must import from outside the
# source, carry its stubs and py.typed, run every Python example of the README and of
# docs/python.md, and link no allocator of ours.
# usage: pip_install.sh SOURCE_DIR PYTHON
set -euo pipefail
source_dir=$(realpath "$1")
python=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

git clone -q "$source_dir" "$work/clone"
"$work/clone/scripts/setup" >/dev/null
"$python" -m venv --system-site-packages "$work/venv"
pip=("$work/venv/bin/python" -m pip --disable-pip-version-check)
(cd "$work/clone" && "${pip[@]}" install -q --no-build-isolation --no-index .)
(cd "$work/clone" && "${pip[@]}" wheel -q --no-build-isolation --no-index --no-deps -w "$work/wheels" .)

cd "$work"
venv_python=$work/venv/bin/python
"$venv_python" - "$work/wheels" <<'PY'
import glob, os, sys, zipfile
import tarnwick_markdown as tm
package = os.path.dirname(tm.__file__)
assert package.startswith(sys.prefix), f"imported {package}, not the installed package"
needed = {"__init__.py", "__init__.pyi", "_core.pyi", "py.typed", "dask.py", "__main__.py"}
assert needed <= set(os.listdir(package)), os.listdir(package)
[wheel] = glob.glob(os.path.join(sys.argv[1], "tarnwick_markdown-*.whl"))
names = {os.path.basename(n) for n in zipfile.ZipFile(wheel).namelist()}
assert needed <= names and any(n.startswith("_core.") and n.endswith(".so") for n in names), names
PY
core=$("$venv_python" -c 'import tarnwick_markdown._core as c; print(c.__file__)')
if ldd "$core" | grep -q mimalloc; then
  echo "the installed module links mimalloc: $(ldd "$core" | grep mimalloc)"
  exit 1
fi

# The documented calls, run from the clone's root, where the paths they name are.
cd "$work/clone"
for doc in README.md docs/python.md; do
  "$venv_python" - "$doc" >/dev/null <<'PY'
import re, sys
text = open(sys.argv[1], encoding="utf-8").read()
blocks = re.findall(r"^```python\n(.*?)^```", text, re.S | re.M)
assert blocks, f"{sys.argv[1]} has no Python example"
namespace = {}  # a page's examples build on each other
for block in blocks:
    exec(compile(block, sys.argv[1], "exec"), namespace)
PY
done
"$venv_python" -m tarnwick_markdown index docs >"$work/records.jsonl"
[ -s "$work/records.jsonl" ]
echo "pip install . and pip wheel . give a working package"

#!/usr/bin/env bash
# The command line as a person meets it, run against the built binary: exit statuses, usage
# errors, output that cannot be written, directory walks past unreadable entries, and the
# golden examples (tests/examples/NAME.md and the records it must give, NAME.jsonl).
# usage: cli.sh TARNWICK_MD EXAMPLES_DIR
set -uo pipefail
binary=$(realpath "$1")
examples=$(realpath "$2")
work=$(mktemp -d)
chmod 755 "$work"
trap 'chmod -R u+rwx "$work"; rm -rf "$work"' EXIT
passed=0 failed=0
fail() {
  failed=$((failed + 1))
  printf 'FAIL: %s\n' "$*"
}
ok() { passed=$((passed + 1)); }

# Each case: arguments, the exit status, and a text that stderr must hold ("" for none, "-" for
# an empty stderr).
expect() {
  local args=$1 status=$2 text=$3 err actual
  err=$(cd "$work" && eval "\"$binary\" $args" 2>&1 >/dev/null)
  actual=$?
  if [ "$actual" != "$status" ]; then
    fail "tarnwick-md $args exited $actual, not $status: $err"
  elif [ "$text" = "-" ] && [ -n "$err" ]; then
    fail "tarnwick-md $args wrote to stderr: $err"
  elif [ "$text" != "-" ] && [[ $err != *"$text"* ]]; then
    fail "tarnwick-md $args: stderr lacks '$text': $err"
  else
    ok
  fi
}

mkdir -p "$work/docs"
printf '# Guide\n[a](a.md)\n' >"$work/docs/guide.md"

expect "index docs" 0 "-"
expect "--version" 0 "-"
expect "-V" 0 "-"
expect "help" 0 "-"
expect "help index" 0 "-"
expect "index --help" 0 "-"
expect "" 2 "Usage: tarnwick-md COMMAND"
expect "idnex docs" 2 "did you mean 'index'?"
expect "outlien docs/guide.md" 2 "did you mean 'outline'?"
expect "help idnex" 2 "did you mean 'index'?"
expect "index --jbos 2 docs" 2 "unknown option '--jbos' for 'index'"
expect "index --jbos 2 docs" 2 "did you mean '--jobs'?"
expect "--frob" 2 "unknown option '--frob'"
expect "index -j 0 docs" 2 "--jobs"
expect "index -j many docs" 2 "--jobs"
expect "outline" 2 "FILE is required"
expect "index --prefix p docs" 2 "--prefix needs a single file argument"
expect "index missing.md" 1 "cannot read missing.md"

# Nothing lost silently: a full disk is an error, for every command that writes.
for args in "index docs" "outline docs/guide.md" "links docs/guide.md" "--help" "help index" \
  "--version"; do
  err=$(cd "$work" && eval "\"$binary\" $args" 2>&1 >/dev/full)
  status=$?
  if [ "$status" = 0 ] || [[ $err != *"tarnwick-md: write error: "* ]]; then
    fail "tarnwick-md $args >/dev/full exited $status with: $err"
  else
    ok
  fi
done

# A broken pipe stays quiet.
for ((i = 0; i < 300; ++i)); do printf '# S%d\n' "$i" >>"$work/docs/long.md"; done
err=$(cd "$work" && "$binary" index docs 2>&1 >/dev/null | head -c 10 >/dev/null)
[ -z "$err" ] && ok || fail "a closed pipe made tarnwick-md write: $err"

# The walk goes past an unreadable directory, names it, and indexes every other file. Root
# reads any directory, so the walk runs as nobody there.
as_user=()
if [ "$(id -u)" = 0 ]; then as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups); fi
mkdir -p "$work/perm/m" "$work/perm/z"
for f in perm/a.md perm/m/m.md perm/z/z.md; do printf '# %s\n' "$f" >"$work/$f"; done
chmod 000 "$work/perm/m"
out=$(cd "$work" && "${as_user[@]}" "$binary" index -j 2 perm 2>"$work/err")
status=$?
paths=$(grep -o '"path":"[^"]*"' <<<"$out" | sort -u | tr '\n' ' ')
if [ "$status" != 1 ] || [ "$paths" != '"path":"a.md" "path":"z/z.md" ' ] ||
  ! grep -q "cannot read perm/m: Permission denied" "$work/err"; then
  fail "walk past perm/m: exit $status, paths $paths, stderr $(cat "$work/err")"
else
  ok
fi
chmod 755 "$work/perm/m"

# Threads reserve no large stacks: many jobs fit in a small address space (not checked under
# AddressSanitizer, whose shadow memory alone is larger).
if ldd "$binary" | grep -q libasan; then
  :
elif (ulimit -v 800000 && cd "$work" && "$binary" index -j 32 docs >/dev/null); then
  ok
else
  fail "index -j 32 does not fit in 800 MB of address space"
fi

for example in "$examples"/*.md; do
  if cmp -s <(cd "$examples" && "$binary" index "$(basename "$example")") "${example%.md}.jsonl"; then
    ok
  else
    fail "the records of $example differ from ${example%.md}.jsonl:
$(diff <(cd "$examples" && "$binary" index "$(basename "$example")") "${example%.md}.jsonl")"
  fi
done

echo "$passed passed, $failed failed"
((failed == 0))

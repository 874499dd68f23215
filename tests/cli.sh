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
expect "help lsp" 0 "-"
expect "lsp --stdoi" 2 "did you mean '--stdio'?"
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
expect "outline" 2 "PATH is required"
expect "index --prefix p docs" 2 "--prefix needs a single file argument"
expect "index missing.md" 1 "cannot read missing.md"

# Views never hand a document's control characters to the terminal; -v lines are compiler-style.
printf -- '---\ntitle: [unclosed\n---\n# A\033]0;title\007 [x](x.md)\n' >"$work/docs/evil.md"
out=$(cd "$work" && "$binary" outline docs/evil.md 2>&1)
[[ $out == 'A\x1b]0;title\x07'* ]] && ok || fail "outline printed: $out"
out=$(cd "$work" && "$binary" links docs/evil.md 2>&1)
[[ $out == *'A\x1b]0;title\x07'* && $out != *$'\033'* ]] && ok || fail "links printed: $out"
out=$(cd "$work" && "$binary" index -v docs/evil.md 2>&1 >/dev/null)
[[ $out == "docs/evil.md:3: The front matter of evil is not YAML: while parsing a flow sequence (line 2, column 8)"* ]] &&
  ok || fail "index -v printed: $out"
rm "$work/docs/evil.md"
printf 'no headings\n' >"$work/plain.md"
expect "outline plain.md" 0 "plain.md has no headings"
# The views take several files, directories and stdin, and give the index records with --json.
out=$(cd "$work" && "$binary" outline docs plain.md 2>/dev/null)
[[ $out == "docs/guide.md:"$'\n'"Guide  [1-2]"* ]] && ok || fail "outline docs plain.md printed: $out"
out=$(cd "$work" && "$binary" links --json docs/guide.md)
[ "$out" = "$(cd "$work" && "$binary" index docs/guide.md | grep '"type":"reference"')" ] && ok ||
  fail "links --json printed: $out"
out=$(cd "$work" && "$binary" outline - <docs/guide.md)
[ "$out" = "Guide  [1-2]  a" ] && ok || fail "outline - printed: $out"
expect "links plain.md" 0 "plain.md has no links to other files"
# No progress line where stderr is not a terminal; on a terminal, one that never mixes with the
# records: none when stdout is the same terminal, and a summary at the end (over the corpus,
# which takes long enough for the line to appear).
expect "index -j 1 docs" 0 "-"
corpus=$(dirname "$examples")/../../shared/corpus/MicrosoftDocs__PowerShell-Docs
if command -v script >/dev/null && [ -d "$corpus" ]; then
  shown=$(script -qc "'$binary' index -j 1 '$corpus' >/dev/null" /dev/null | tr '\r' '\n')
  [[ $shown == *" files, "*" MB/s, "*" elapsed, "*" left"* && $shown == *" links, 0 errors in "* ]] &&
    ok || fail "no progress line and summary on a terminal: $shown"
  mixed=$(script -qc "'$binary' index -j 1 '$corpus'" /dev/null | grep -c ' MB/s, ')
  [ "$mixed" = 0 ] && ok || fail "the progress line went to the terminal that shows the records"
  quiet=$(script -qc "'$binary' index -q -j 1 '$corpus' >/dev/null" /dev/null)
  [ -z "$quiet" ] && ok || fail "-q still showed: $quiet"
fi

# File selection: stdin, git's ignores, hidden entries, links, excludes, the list of files, and
# paths that keep several directory arguments apart.
out=$(cd "$work" && printf '# A\n' | "$binary" index --stdin-path notes/a.md -)
[[ $out == '{"type":"symbol","path":"notes/a.md",'*'"fqn":"notes.a.A"'* ]] && ok ||
  fail "index --stdin-path notes/a.md - printed: $out"
expect "index - </dev/null" 2 "needs --stdin-path or --prefix"
repo=$work/repo
mkdir -p "$repo/ignored" "$repo/.hidden" "$repo/drafts" "$repo/sub"
git -C "$repo" init -q
printf 'ignored/\nsecret.md\n' >"$repo/.gitignore"
for f in ignored/x.md secret.md kept.md .hidden/h.md drafts/d.md sub/s.md; do
  printf '# %s\n' "$f" >"$repo/$f"
done
ln -s ../sub "$repo/drafts/link"
selected() { (cd "$work" && "$binary" index --files "$@" | tr '\n' ' '); }
for case in "|repo/drafts/d.md repo/kept.md repo/sub/s.md " \
  "--no-ignore|repo/drafts/d.md repo/ignored/x.md repo/kept.md repo/secret.md repo/sub/s.md " \
  "--hidden|repo/.hidden/h.md repo/drafts/d.md repo/kept.md repo/sub/s.md " \
  "--exclude drafts --exclude sub/*.md|repo/kept.md " \
  "--follow --exclude sub|repo/drafts/d.md repo/drafts/link/s.md repo/kept.md "; do
  flags=${case%%|*} expected=${case#*|}
  # shellcheck disable=SC2086
  got=$(selected $flags repo)
  [ "$got" = "$expected" ] && ok || fail "index --files $flags repo gave '$got', not '$expected'"
done
# .ignore files, inside a git work tree: patterns relative to their directory (anchored by a "/"
# or matched at any depth below it), a deeper file's rules over a higher one's, all of them over
# .gitignore, those above the argument applying too, a glob character in a directory's name taken
# literally, and lines written as git reads them (comments, blank lines, trailing spaces, CRLF).
dot=$work/dotignore
mkdir -p "$dot/gen" "$dot/sub/old" "$dot/sub/deep/old" "$dot/we[i]rd" "$dot/weird"
git -C "$dot" init -q
printf 'secret.md\nprivate.md\ngen/\n' >"$dot/.gitignore"
printf '# drafts stay out\n\n   \ndrafts.md\n!secret.md\n!sub/private.md\n/top.md\n' >"$dot/.ignore"
printf '/local.md\r\nany.md\r\nold*/  \r\ndeep/x.md\r\n' >"$dot/sub/.ignore"
printf '!any.md\n' >"$dot/sub/deep/.ignore"
printf 'a.md\n' >"$dot/we[i]rd/.ignore"
for f in kept.md drafts.md secret.md private.md top.md any.md gen/g.md sub/top.md sub/drafts.md \
  sub/secret.md sub/private.md sub/local.md sub/any.md sub/old/o.md sub/old.md sub/deep/local.md \
  sub/deep/any.md sub/deep/x.md sub/deep/old/o.md "we[i]rd/a.md" weird/a.md; do
  printf '# %s\n' "$f" >"$dot/$f"
done
for case in "dotignore|any.md kept.md secret.md sub/deep/any.md sub/deep/local.md sub/old.md sub/private.md sub/secret.md sub/top.md weird/a.md" \
  "dotignore/sub|deep/any.md deep/local.md old.md private.md secret.md top.md" \
  "dotignore/sub/deep|any.md local.md" \
  "--no-ignore dotignore|any.md drafts.md gen/g.md kept.md private.md secret.md sub/any.md sub/deep/any.md sub/deep/local.md sub/deep/old/o.md sub/deep/x.md sub/drafts.md sub/local.md sub/old.md sub/old/o.md sub/private.md sub/secret.md sub/top.md top.md we[i]rd/a.md weird/a.md"; do
  args=${case%%|*} expected=${case#*|}
  # shellcheck disable=SC2086
  got=$(selected $args | sed "s|${args##* }/||g")
  [ "$got" = "$expected " ] && ok || fail "index --files $args gave '$got', not '$expected '"
done
# Outside a git work tree neither .gitignore nor .ignore files are read.
mkdir -p "$work/plain-dir"
printf 'x.md\n' >"$work/plain-dir/.ignore"
printf '# X\n' >"$work/plain-dir/x.md"
got=$(selected plain-dir)
[ "$got" = "plain-dir/x.md " ] && ok || fail "index --files plain-dir read its .ignore: '$got'"
mkdir -p "$work/a" "$work/b"
printf '# X\n' >"$work/a/README.md"
printf '# Y\n' >"$work/b/README.md"
out=$(cd "$work" && "$binary" index --paths-from-cwd a b | grep -o '"path":"[^"]*","file_id":[0-9],"id":null,"name":"[XY]","kind":"section","fqn":"[^"]*"' | tr '\n' ' ')
[ "$out" = '"path":"a/README.md","file_id":1,"id":null,"name":"X","kind":"section","fqn":"a.README.X" "path":"b/README.md","file_id":2,"id":null,"name":"Y","kind":"section","fqn":"b.README.Y" ' ] &&
  ok || fail "index --paths-from-cwd a b gave $out"

# The index store: usage errors, stores that cannot be used, and what queries exit with.
expect "index --db store.db -" 2 "not '-' (stdin)"
expect "index --db store.db --files docs" 2 "--files and --db cannot be used together"
expect "index --rebuild docs" 2 "--rebuild needs --db"
expect "index --db store.db --hidden" 2 "--hidden needs PATH with --db"
expect "export" 2 "--db is required"
expect "export --db missing.db" 2 "tarnwick-md: no store at missing.db"
expect "refs --db store.db" 2 "TARGET is required"
expect "symbols --db store.db --limit 0 guide" 2 "--limit"
expect "export --db docs/guide.md" 2 "docs/guide.md is not a tarnwick-md store"
expect "index --db store.db docs" 0 "store.db: 1 files (1 read), 1 re-indexed (1 parsed), 0 unchanged"
expect "index --db store.db" 0 "0 re-indexed (0 parsed), 1 unchanged"
expect "export --db store.db" 0 "-"
expect "refs --db store.db a.md" 0 "-"
expect "refs --db store.db guide.md" 1 "no reference leads to guide.md"
expect "symbols --db store.db guide" 0 "-"
expect "symbols --db store.db nothing" 1 "no section matches nothing"
out=$(cd "$work" && "$binary" refs --db store.db a.md)
[ "$out" = "guide.md:2  doc_link   a.md  guide.Guide" ] && ok || fail "refs printed: $out"
out=$(cd "$work" && "$binary" export --db store.db)
[ "$out" = "$(cd "$work" && "$binary" index docs)" ] && ok || fail "export printed: $out"

# Nothing lost silently: a full disk is an error, for every command that writes.
for args in "index docs" "outline docs/guide.md" "links docs/guide.md" "--help" "help index" \
  "--version" "export --db store.db" "refs --db store.db a.md" "symbols --db store.db guide"; do
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
# An unreadable .ignore is named too, and the walk goes on without its rules. The repository
# belongs to the user who walks it, or libgit2 does not open it, and HOME must be readable.
locked=$work/locked
mkdir -p "$locked/sub"
git -C "$locked" init -q
printf '# A\n' >"$locked/a.md"
printf '# B\n' >"$locked/sub/b.md"
printf 'b.md\n' >"$locked/sub/.ignore"
chmod 000 "$locked/sub/.ignore"
if [ "$(id -u)" = 0 ]; then chown -R nobody:nogroup "$locked"; fi
got=$(cd "$work" && HOME=$work "${as_user[@]}" "$binary" index --files locked 2>"$work/err" | tr '\n' ' ')
status=$?
if [ "$status" != 1 ] || [ "$got" != "locked/a.md locked/sub/b.md " ] ||
  ! grep -q "cannot read locked/sub/.ignore: Permission denied" "$work/err"; then
  fail "walk past locked/sub/.ignore: exit $status, files $got, stderr $(cat "$work/err")"
else
  ok
fi

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

# check: exit statuses, formats, filters and changed files, on a small repository.
site=$work/site
mkdir -p "$site/docs"
printf '# Home\n[guide](docs/guide.md#install) [gone](docs/gide.md) [site](/about/)\n' >"$site/README.md"
printf '# Guide\n## Install\n[home](../README.md#home)\n' >"$site/docs/guide.md"
printf '# Clean\n[guide](guide.md)\n' >"$site/docs/clean.md"
expect "check site/docs/clean.md --root site" 0 "1 file, 1 link checked: no problems"
expect "check site" 1 "2 problems (1 missing-file, 1 site-path)"
expect "check --ignore site-path --ignore missing-file site" 0 "no problems"
expect "check --ignore missing-fil site" 2 "did you mean 'missing-file'?"
expect "check --format yaml site" 2 "--format"
expect "check - " 2 "not '-' (stdin)"
expect "check --changed site/README.md --changed-since HEAD site" 2 "cannot be used together"
expect "check missing-dir" 2 "cannot read missing-dir"
expect "check --root site/docs site/README.md" 2 "is not under the root site/docs"
# A symbolic link is a file of the repository, as git keeps it.
mkdir -p "$work/linked" && printf '[l](link.md) [d](dir)\n' >"$work/linked/a.md"
ln -s a.md "$work/linked/link.md" && mkdir -p "$work/linked/real" && ln -s real "$work/linked/dir"
printf 'x\n' >"$work/linked/real/x.md"
expect "check linked" 0 "2 files, 2 links checked: no problems"
printf '[a](gone.md)\n' >"$work/notes.txt"
expect "check notes.txt" 1 "1 file, 1 link checked: 1 problem (1 missing-file)"
expect "check site > /dev/full" 2 "write error"
text=$(cd "$work" && "$binary" check site 2>/dev/null)
[[ $text == *'site/README.md:2:32: missing-file: no file "docs/gide.md" (did you mean "docs/guide.md"?)'* ]] && ok ||
  fail "check's text line is not path:line:column: code: message (suggestion): $text"
json=$(cd "$work" && "$binary" check --format json site 2>/dev/null | head -1)
[ "$json" = '{"path":"site/README.md","line":2,"column":32,"target":"docs/gide.md","code":"missing-file","message":"no file \"docs/gide.md\"","suggestion":"docs/guide.md"}' ] &&
  ok || fail "check's JSON line differs: $json"
sarif=$(cd "$work" && "$binary" check --format sarif site 2>/dev/null)
node -e 'let s="";process.stdin.on("data",d=>s+=d).on("end",()=>{const l=JSON.parse(s);
    process.exit(l.version==="2.1.0"&&l.runs[0].results.length===2&&
      l.runs[0].results[0].locations[0].physicalLocation.region.startLine===2?0:1)})' <<<"$sarif" &&
  ok || fail "check's SARIF log is not a 2.1.0 log of the two problems"
github=$(cd "$work" && "$binary" check --format github site 2>/dev/null | head -1)
[[ $github == '::error file=site/README.md,line=2,col=32,title=missing-file::no file "docs/gide.md"'* ]] &&
  ok || fail "check's workflow annotation differs: $github"
# A site generator's codes are warnings for code scanning and in annotations.
mkdir -p "$work/templated" && printf '[t](<{{%% param repo %%}}>) [m](gone.md)\n' >"$work/templated/a.md"
github=$(cd "$work" && "$binary" check --format github templated 2>/dev/null)
[[ $github == '::warning file=templated/a.md,line=1,col=1,title=template-syntax::'*$'\n''::error '*'title=missing-file::'* ]] &&
  ok || fail "a template's annotation is not a warning: $github"
# Changed files: links from them and into them only.
git -C "$site" init -q && git -C "$site" add . && git -C "$site" -c user.name=t -c user.email=t@t commit -qm site
expect "check --changed-since HEAD site" 0 "no problems"
printf '# Guide\n## Setup\n' >"$site/docs/guide.md"
expect "check --changed-since HEAD site" 1 "1 problem (1 missing-anchor-other-file)"
expect "check --changed site/docs/clean.md site" 0 "no problems"
expect "check --changed-since no-such-ref site" 2 "'no-such-ref' names no commit"
# A .ignore file keeps files from being checked, not from being linked to.
printf 'docs/\n' >"$site/.ignore"
expect "check site" 1 "1 file, 3 links checked: 3 problems (1 missing-anchor-other-file, 1 missing-file, 1 site-path)"

# Configuration: .tarnwick-md.toml in the current directory, another file named by --config, none
# with --no-config. Flags add to the file's lists and override its values; a bad file is one line
# naming its line and key, and exit status 2.
conf=$work/configured
mkdir -p "$conf/drafts"
printf '# A\n[m](gone.md) [i](i.png) [s](/site/) [[Page]]\n' >"$conf/README.md"
printf '[d](nothing.md)\n' >"$conf/drafts/d.md"
printf 'ignore = ["site-path"]\nexclude = ["drafts"]\naccept = ["*.png"]\nwiki = true\n' \
  >"$conf/.tarnwick-md.toml"
printf 'ignore = ["missing-file"]\n' >"$conf/other.toml"
printf 'wiki = false\nignore = ["missing-fil"]\n' >"$conf/typo.toml"
printf 'exclude = "drafts"\n' >"$conf/scalar.toml"
printf 'ignor = []\n' >"$conf/unknown.toml"
for case in "check|1|1 file, 4 links checked: 2 problems (1 missing-file, 1 missing-page)" \
  "check --no-config|1|2 files, 4 links checked: 4 problems (3 missing-file, 1 site-path)" \
  "check --config other.toml|1|2 files, 4 links checked: 1 problem (1 site-path)" \
  "check --ignore missing-file|1|1 file, 4 links checked: 1 problem (1 missing-page)" \
  "check --accept gone*|1|1 file, 4 links checked: 1 problem (1 missing-page)" \
  "check --exclude README.md|0|0 files, 0 links checked: no problems" \
  "check --no-wiki|1|1 file, 3 links checked: 1 problem (1 missing-file)" \
  "check --config other.toml --wiki|1|2 files, 5 links checked: 2 problems (1 missing-page, 1 site-path)" \
  "check --config typo.toml|2|tarnwick-md: typo.toml:2: ignore: 'missing-fil' is not a problem code (did you mean 'missing-file'?)" \
  "check --config scalar.toml|2|tarnwick-md: scalar.toml:1: exclude: must be an array of globs" \
  "check --config unknown.toml|2|tarnwick-md: unknown.toml:1: ignor: unknown key (did you mean 'ignore'?)" \
  "index --config unknown.toml|2|tarnwick-md: unknown.toml:1: ignor: unknown key" \
  "check --config gone.toml|2|tarnwick-md: gone.toml: cannot read it: No such file or directory" \
  "check --config other.toml --no-config|2|--config and --no-config cannot be used together"; do
  IFS='|' read -r args status text <<<"$case"
  # shellcheck disable=SC2086
  err=$(cd "$conf" && "$binary" $args 2>&1 >/dev/null)
  actual=$?
  [ "$actual" = "$status" ] && [[ $err == *"$text"* ]] && [ "$(wc -l <<<"$err")" = 1 ] && ok ||
    fail "in a configured repository, tarnwick-md $args exited $actual with: $err"
done
for case in "|./README.md " "--no-config|./README.md ./drafts/d.md " \
  "--config other.toml --exclude README.md|./drafts/d.md "; do
  flags=${case%%|*} expected=${case#*|}
  # shellcheck disable=SC2086
  got=$(cd "$conf" && "$binary" index --files $flags | tr '\n' ' ')
  [ "$got" = "$expected" ] && ok || fail "index --files $flags in a configured repository gave '$got'"
done

# Suppressions: silenced where they are written; unused ones reported when asked for.
mkdir -p "$work/suppressed"
printf '<!-- tarnwick-md-ignore-next-line -->\n[a](a.md)\n<!-- tarnwick-md-ignore-next-line -->\n' \
  >"$work/suppressed/doc.md"
expect "check suppressed" 0 "1 link checked: no problems"
expect "check --report-unused-suppressions suppressed" 1 "1 problem (1 unused-suppression)"

# Baselines: today's problems recorded, then only new ones reported (exit status 1 only for
# them); a problem moved by an edit stays known, a fixed one is counted, SARIF marks each.
known=$work/known
mkdir -p "$known"
printf '# A\n[m](gone.md) [s](/site/)\n' >"$known/README.md"
printf '[x](#nope)\n' >"$known/b.md"
in_known() { (cd "$known" && "$binary" check "$@"); }
err=$(in_known --write-baseline known.json 2>&1 >/dev/null)
[ $? = 0 ] && [[ $err == *"3 problems written to known.json as known" ]] && ok ||
  fail "check --write-baseline: $err"
printf '# A\n\nAn edit above.\n[m](gone.md) [s](/site/) [n](new.md)\n' >"$known/README.md"
printf '# B\n' >"$known/b.md"
out=$(in_known --baseline known.json 2>"$work/err")
status=$?
[ "$status" = 1 ] && [ "$out" = 'README.md:4:26: missing-file: no file "new.md"' ] &&
  [[ $(cat "$work/err") == *"1 new problem (1 missing-file); 2 known, 1 fixed" ]] && ok ||
  fail "check --baseline exited $status with: $out $(cat "$work/err")"
sarif=$(in_known --baseline known.json --format sarif 2>/dev/null)
node -e 'let s="";
  process.stdin.on("data",d=>s+=d).on("end",()=>{const r=JSON.parse(s).runs[0].results;
  process.exit(r.map(x=>x.ruleId+":"+x.baselineState).join(" ")===
    "missing-file:unchanged site-path:unchanged missing-file:new"?0:1)})' <<<"$sarif" &&
  ok || fail "check --baseline --format sarif does not mark the results new and unchanged"
# Files are known by their path from the root, wherever the check runs from.
printf '# A\n[m](gone.md) [s](/site/)\n' >"$known/README.md"
expect "check --baseline known/known.json known" 0 "no new problems; 2 known, 1 fixed"
expect "check --baseline known/missing.json known" 2 "cannot read the baseline known/missing.json"
printf '{"problems": 1}' >"$known/bad.json"
expect "check --baseline known/bad.json known" 2 "is not a baseline written by --write-baseline"
expect "check --baseline a --write-baseline b known" 2 "cannot be used together"

# Every example of the help runs, in a repository that has the files they name.
examples_dir=$work/help-examples
mkdir -p "$examples_dir/docs" "$examples_dir/notes"
printf '# Tour\n[a](a.md) [setup](setup.md#install)\n' >"$examples_dir/docs/tour.md"
printf '# Setup\n## Install\nRun the installer.\n' >"$examples_dir/docs/setup.md"
printf '# Setup\n' >"$examples_dir/notes/setup.md"
printf '# Read me\n' >"$examples_dir/README.md"
git -C "$examples_dir" init -q
git -C "$examples_dir" add README.md
git -C "$examples_dir" -c user.name=t -c user.email=t@t commit -qm examples
for command in index check outline links export refs symbols; do
  while IFS= read -r example; do
    # check exits with 1 when it finds problems, which is what an example may show.
    (cd "$examples_dir" && PATH="$(dirname "$binary"):$PATH" bash -o pipefail -c "$example" >/dev/null 2>&1)
    status=$?
    if ((status == 0)) || { [ "$command" = check ] && ((status == 1)); }; then
      ok
    else
      fail "the example of 'help $command' fails: $example"
    fi
  done < <("$binary" help "$command" | sed -n 's/^  \(.*tarnwick-md .*\)$/\1/p')
done

# The man page and the completions know every option of the help, and the bash one parses.
source_dir=$(dirname "$examples")/..
for option in $( (
  for command in index check lsp export refs symbols; do "$binary" "$command" --help; done
) | grep -o -- '--[a-z-]*' | sort -u); do
  for file in docs/man/tarnwick-md.1 completions/tarnwick-md.bash completions/_tarnwick-md; do
    text=$(sed 's/\\-/-/g' "$source_dir/$file")
    [[ $text == *"$option"* ]] && ok || fail "$file lacks $option"
  done
done
bash -n "$source_dir/completions/tarnwick-md.bash" && ok || fail "the bash completion does not parse"

echo "$passed passed, $failed failed"
((failed == 0))

"""python3 -m tarnwick_markdown index PATH...: the JSON Lines of ``tarnwick-md index``."""

import argparse
import json
import sys

from . import index_paths


def main(argv=None) -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m tarnwick_markdown",
        description="Print the records of every Markdown file as tarnwick-md index does.")
    commands = parser.add_subparsers(dest="command", required=True)
    command = commands.add_parser("index", help="print the records as JSON Lines")
    command.add_argument("paths", nargs="*", default=["."], metavar="PATH")
    command.add_argument("-j", "--jobs", type=int, default=None,
                         help="files indexed at once (default: the number of cores)")
    arguments = parser.parse_args(argv)
    out = sys.stdout
    out.reconfigure(encoding="utf-8", newline="\n")
    try:
        for record in index_paths(arguments.paths, jobs=arguments.jobs):
            out.write(json.dumps(record, ensure_ascii=False, separators=(",", ":")))
            out.write("\n")
        out.flush()
    except OSError as error:
        print(f"tarnwick_markdown: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

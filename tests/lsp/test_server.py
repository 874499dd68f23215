"""The server as a client meets it: lifecycle, malformed messages, cancellation, position
encodings, incremental sync, and the outline (documentSymbol, foldingRange) of real
documents."""

import json
import subprocess
from pathlib import Path

import pytest

from conftest import CAPABILITIES
from lsp_client import frame

REPOSITORY = Path(__file__).resolve().parents[2]
CORPUS = REPOSITORY.parent / "shared" / "corpus"
URI = "file:///tmp/tarnwick-lsp-test/doc.md"

PARSE_ERROR, INVALID_REQUEST, METHOD_NOT_FOUND, INVALID_PARAMS = -32700, -32600, -32601, -32602
SERVER_NOT_INITIALIZED, REQUEST_FAILED, REQUEST_CANCELLED = -32002, -32803, -32800


def symbols(client, uri=URI):
    return client.result("textDocument/documentSymbol", {"textDocument": {"uri": uri}})


def flat(symbols, depth=0):
    """(depth, name, first line, last line) of each symbol, in document order."""
    for symbol in symbols:
        yield depth, symbol["name"], symbol["range"]["start"]["line"], symbol["range"]["end"]["line"]
        yield from flat(symbol["children"], depth + 1)


@pytest.mark.parametrize("ending, status", [
    ("shutdown and exit", 0),
    ("exit", 1),
    ("end of input", 1),
    ("shutdown and end of input", 0),
])
def test_the_session_ends_with_the_protocols_status(start, ending, status):
    client = start("--stdio")
    client.initialize()
    if ending.startswith("shutdown"):
        assert client.result("shutdown") is None
    if ending.endswith("exit"):
        client.notify("exit")
    assert client.wait() == status


def test_requests_before_initialize_and_after_shutdown_are_refused(start):
    client = start()
    assert client.request("textDocument/documentSymbol", {})["error"]["code"] == SERVER_NOT_INITIALIZED
    client.notify("textDocument/didOpen", {"textDocument": {"uri": URI, "text": "# A"}})  # dropped
    client.initialize(CAPABILITIES)
    assert client.request("initialize", {"capabilities": {}})["error"]["code"] == INVALID_REQUEST
    assert client.request("textDocument/documentSymbol",
                          {"textDocument": {"uri": URI}})["error"]["code"] == REQUEST_FAILED
    assert client.request("no/such/method", {})["error"]["code"] == METHOD_NOT_FOUND
    client.notify("no/such/notification", {})
    client.notify("$/setTrace", {"value": "off"})
    assert client.result("shutdown") is None
    assert client.request("textDocument/documentSymbol", {})["error"]["code"] == INVALID_REQUEST
    assert client.exit(shutdown=False) == 0


@pytest.mark.parametrize("offered, chosen", [
    (None, "utf-16"),
    (["utf-16"], "utf-16"),
    (["utf-32", "utf-16"], "utf-16"),
    (["utf-16", "utf-8"], "utf-8"),
])
def test_initialize_negotiates_the_position_encoding(start, offered, chosen):
    client = start()
    capabilities = {"general": {"positionEncodings": offered}} if offered else {}
    result = client.initialize(capabilities)
    assert result["capabilities"]["positionEncoding"] == chosen
    assert result["capabilities"]["textDocumentSync"]["change"] == 2
    assert result["capabilities"]["documentSymbolProvider"] is True
    assert result["serverInfo"]["name"] == "tarnwick-md"


def body(text: str) -> bytes:
    return text.encode()


MALFORMED = [
    ("a header line without a colon", b"Garbage\r\n\r\n", PARSE_ERROR),
    ("no Content-Length", b"Content-Type: x\r\n\r\n{}\r\n", PARSE_ERROR),
    ("a Content-Length that is no number", b"Content-Length: ten\r\n\r\n", PARSE_ERROR),
    ("a huge Content-Length", b"Content-Length: 1000000000000\r\n\r\n{}\r\n", PARSE_ERROR),
    ("an overflowing Content-Length", b"Content-Length: 99999999999999999999999999\r\n\r\n",
     PARSE_ERROR),
    ("a body shorter than its length", b'Content-Length: 5\r\n\r\n{"a":1}\r\n', PARSE_ERROR),
    ("invalid JSON", frame(b'{"jsonrpc":"2.0","id":1,"method":'), PARSE_ERROR),
    ("bytes that are not UTF-8", frame(b'{"jsonrpc":"2.0","method":"\xff"}'), PARSE_ERROR),
    ("an empty body", frame(b""), PARSE_ERROR),
    ("a batch", frame(b'[{"jsonrpc":"2.0","id":1,"method":"shutdown"}]'), INVALID_REQUEST),
    ("a number", frame(b"42"), INVALID_REQUEST),
    ("no jsonrpc member", frame(b'{"id":1,"method":"shutdown"}'), INVALID_REQUEST),
    ("a method that is not a string", frame(b'{"jsonrpc":"2.0","id":1,"method":1}'), INVALID_REQUEST),
    ("an id that is an object", frame(b'{"jsonrpc":"2.0","id":{},"method":"m"}'), INVALID_REQUEST),
    ("params that are a string", frame(b'{"jsonrpc":"2.0","id":1,"method":"m","params":"p"}'),
     INVALID_REQUEST),
    ("deep nesting", frame(b"[" * 200000 + b"]" * 200000), INVALID_REQUEST),
    ("wrong params", frame(json.dumps({"jsonrpc": "2.0", "id": 9999, "method": "textDocument/documentSymbol",
                                       "params": {"textDocument": 7}}).encode()), INVALID_PARAMS),
    ("a position of the wrong type",
     frame(json.dumps({"jsonrpc": "2.0", "method": "textDocument/didChange", "params": {
         "textDocument": {"uri": URI, "version": 2},
         "contentChanges": [{"range": {"start": {"line": "0", "character": 0},
                                       "end": {"line": 0, "character": 0}}, "text": "x"}]}}).encode()),
     None),  # a notification: logged, never answered
]


@pytest.mark.parametrize("name, data, code", MALFORMED, ids=[case[0] for case in MALFORMED])
def test_a_malformed_message_gets_an_error_and_the_session_goes_on(server, name, data, code):
    server.open(URI, "# Title\n")
    server.send_raw(data)
    if code is not None:
        error = server.receive(lambda m: "error" in m)
        assert error["error"]["code"] == code, error
    # The next message is read, and the document was left as it was.
    assert [s["name"] for s in symbols(server)] == ["Title"]
    if code in (PARSE_ERROR, INVALID_REQUEST):
        assert any(n["method"] == "window/logMessage" and "malformed" in n["params"]["message"]
                   for n in server.notifications)
    assert server.exit() == 0


def test_headers_are_read_in_any_case_with_any_line_ends(server):
    request = json.dumps({"jsonrpc": "2.0", "id": 77, "method": "no/such"}).encode()
    server.send_raw(b"\r\ncontent-length: %d\nCONTENT-TYPE: application/vscode-jsonrpc; charset=utf-8\n\n"
                    % len(request) + request)
    assert server.response(77)["error"]["code"] == METHOD_NOT_FOUND


def big_document(sections: int) -> str:
    return "".join(f"# Part {i}\n\n" + "Some text with [a link](other.md#x) in it.\n" * 20 + "\n"
                   for i in range(sections))


def test_a_cancelled_request_is_answered_once(server):
    server.open(URI, big_document(1000))  # some 900 KB: parsed long after the cancel arrives
    first = server.send_request("textDocument/documentSymbol", {"textDocument": {"uri": URI}})
    server.notify("$/cancelRequest", {"id": first})
    assert server.response(first)["error"]["code"] == REQUEST_CANCELLED
    server.notify("$/cancelRequest", {"id": 12345})  # no such request: ignored
    # The same version's outline, which the cancelled request waited for, is answered to the
    # next request only.
    assert len(symbols(server)) == 1000
    server.response(server.send_request("no/such"))
    assert [m for m in server.responses if m["id"] == first] == [
        {"jsonrpc": "2.0", "id": first, "error": {"code": REQUEST_CANCELLED,
                                                  "message": "the request was cancelled"}}]


def test_a_large_document_keeps_the_server_answering(server):
    server.open(URI, big_document(2000))  # some 1.7 MB
    outline = server.send_request("textDocument/documentSymbol", {"textDocument": {"uri": URI}})
    other = server.send_request("no/such")
    order = [server.receive(lambda m: m.get("id") in (outline, other) and "method" not in m)["id"]
             for _ in range(2)]
    assert order == [other, outline]  # the parse runs on a worker, not on the main thread


@pytest.mark.parametrize("encoding, text, changes, names, heading_end", [
    # a surrogate pair: two UTF-16 units, four UTF-8 bytes
    ("utf-16", "# a\U0001F600b\n", [((0, 5), (0, 6), "c")], ["a\U0001F600c"], 6),
    ("utf-8", "# a\U0001F600b\n", [((0, 7), (0, 8), "c")], ["a\U0001F600c"], 8),
    # several changes in one notification, each on the text the one before made
    ("utf-16", "# One\n", [((0, 2), (0, 5), "Two"), ((1, 0), (1, 0), "## Three\r\n")],
     ["Two", "Three"], 5),
    # lone CR line ends, one of them joined with an inserted "\n" into one line end
    ("utf-16", "# A\r\r# B\n", [((1, 0), (1, 0), "\n# C")], ["A", "C", "B"], 3),
    # a range past the end of a line and of the text: clamped
    ("utf-16", "# A\n", [((0, 99), (7, 0), "x\n\n# Z")], ["Ax", "Z"], 4),
    # a whole-text change among ranged ones
    ("utf-16", "# A\n", [(None, None, "# Whole\n"), ((0, 2), (0, 2), "A ")], ["A Whole"], 9),
])
def test_incremental_changes_in_either_encoding(start, encoding, text, changes, names, heading_end):
    client = start()
    client.initialize({**CAPABILITIES, "general": {"positionEncodings": [encoding]}})
    client.open(URI, text)
    content_changes = []
    for begin, end, new_text in changes:
        change = {"text": new_text}
        if begin is not None:
            change["range"] = {"start": {"line": begin[0], "character": begin[1]},
                               "end": {"line": end[0], "character": end[1]}}
        content_changes.append(change)
    client.change(URI, 2, content_changes)
    got = symbols(client)
    assert [name for _, name, _, _ in flat(got)] == names
    assert got[0]["selectionRange"]["end"]["character"] == heading_end


def outline_records(binary, path):
    out = subprocess.run([binary, "outline", "--json", str(path)], check=True, capture_output=True)
    return [json.loads(line) for line in out.stdout.decode().splitlines()]


def documents():
    found = sorted((REPOSITORY / "tests" / "examples").glob("*.md")) + [REPOSITORY / "README.md"]
    if CORPUS.is_dir():
        for repository in sorted(CORPUS.iterdir())[:6]:
            found += sorted(repository.rglob("*.md"))[:15]
    return found


def test_document_symbols_are_what_outline_shows(server, tarnwick_md):
    for path in documents():
        text = path.read_bytes().decode("utf-8", errors="replace")
        uri = path.as_uri()
        server.open(uri, text)
        got = symbols(server, uri)
        expected = [(r["name"], r["start_line"] - 1, r["end_line"] - 1)
                    for r in outline_records(tarnwick_md, path) if r["type"] == "symbol"]
        assert [(name, first, last) for _, name, first, last in flat(got)] == expected, path

        def contained(children, parent):
            for child in children:
                assert parent["range"]["start"]["line"] <= child["range"]["start"]["line"]
                assert child["range"]["end"]["line"] <= parent["range"]["end"]["line"]
                assert child["kind"] == 15
                contained(child["children"], child)
        for symbol in got:
            contained(symbol["children"], symbol)
        server.notify("textDocument/didClose", {"textDocument": {"uri": uri}})


OUTLINED = """---
title: The title
---

# Guide

```sh
make
make install
```

## Set-up

    indented
    code

> ~~~
> quoted
> ~~~

## Empty
"""


def test_folding_ranges_cover_sections_code_and_front_matter(server):
    server.open(URI, OUTLINED.replace("\n", "\r\n"))
    ranges = server.result("textDocument/foldingRange", {"textDocument": {"uri": URI}})
    assert sorted((r["startLine"], r["endLine"]) for r in ranges) == [
        (0, 2),    # front matter
        (4, 20),   # Guide
        (6, 9),    # fenced code
        (11, 18),  # Set-up
        (13, 14),  # indented code
        (16, 18),  # fenced code in a quote
    ]
    # The front matter's title is no section, since the document has a level-1 heading.
    assert [name for _, name, _, _ in flat(symbols(server))] == ["Guide", "Set-up", "Empty"]


def test_symbols_are_flat_for_a_client_without_hierarchy(start):
    client = start()
    client.initialize({})
    client.open(URI, "# A\n## B\n### C\n# D\n")
    got = symbols(client)
    assert [(s["name"], s.get("containerName")) for s in got] == [
        ("A", None), ("B", "A"), ("C", "B"), ("D", None)]
    assert all(s["location"]["uri"] == URI for s in got)

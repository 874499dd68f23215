"""What the server knows of a whole repository, asked as an editor asks: where links lead and
who links here, renames of headings, labels and files, workspace symbols, completion, hover,
document links, quick fixes, and check's problems pushed as diagnostics, also for the closed
files a change breaks or mends."""

import json
import random
import subprocess
from pathlib import Path

import pytest

CAPABILITIES = {
    "general": {"positionEncodings": ["utf-16"]},
    "textDocument": {"rename": {"prepareSupport": True},
                     "documentSymbol": {"hierarchicalDocumentSymbolSupport": True}},
    "workspace": {"workspaceEdit": {"documentChanges": True}, "configuration": True,
                  "didChangeWatchedFiles": {"dynamicRegistration": True}},
}

FILES = {
    "README.md": "# Guide\n\nSee [setup](docs/setup.md#install), [again][s] and [the file](docs/setup.md).\n"
                 "Jump to [here](#guide), [the folder](docs#docs) or [[setup#Install]].\n\n"
                 "[s]: docs/setup.md#install\n[stale]: docs/setup.md#install\n",
    "docs/setup.md": "# Setup\n\nHow to set up.\n\n## Install\n\nRun the installer.\n\n## Install\n\n"
                     "Again: [first](#install), [second](#install-1), "
                     "<a href=\"setup.md#install\">html</a>.\n",
    "docs/README.md": "# Docs\n\n[back](../README.md) and [setup](setup.md#instal).\n",
    "img/logo.png": "",
}


class Repository:
    def __init__(self, root: Path, client):
        self.root, self.client = root, client
        self.seen = set()  # the publications of diagnostics already returned, by their place

    def uri(self, path: str) -> str:
        return (self.root / path).as_uri()

    def text(self, path: str) -> str:
        return (self.root / path).read_text()

    def position(self, path: str, marker: str, text=None, nth=0) -> dict:
        text = self.text(path) if text is None else text
        at = -1
        for _ in range(nth + 1):
            at = text.index(marker, at + 1)
        line = text.count("\n", 0, at)
        column = at - (text.rfind("\n", 0, at) + 1)
        return {"line": line, "character": len(text[at - column:at].encode("utf-16-le")) // 2}

    def open(self, path: str, text=None, version=1):
        self.client.open(self.uri(path), self.text(path) if text is None else text, version)

    def at(self, method: str, path: str, marker: str, nth=0, **params):
        return self.client.result(method, {"textDocument": {"uri": self.uri(path)},
                                           "position": self.position(path, marker, nth=nth),
                                           **params})

    def diagnostics(self, path: str, version=None) -> list:
        """The next diagnostics published for a document (of a version), in the order the
        server sent them, whether they came before this call or after."""
        uri = self.uri(path)

        def wanted(index, message):
            return (index not in self.seen and message.get("method") == "textDocument/publishDiagnostics"
                    and message["params"]["uri"] == uri
                    and (version is None or message["params"].get("version") == version))
        while True:
            for index, message in enumerate(self.client.notifications):
                if wanted(index, message):
                    self.seen.add(index)
                    return message["params"]["diagnostics"]
            self.client.receive(lambda m: m.get("method") == "textDocument/publishDiagnostics")

    def places(self, locations) -> list:
        """Each location as "path:line:character" from the root."""
        return sorted(f"{Path(l['uri'][7:]).relative_to(self.root)}:{l['range']['start']['line']}:"
                      f"{l['range']['start']['character']}" for l in locations)


@pytest.fixture
def repository(tmp_path, start):
    def make(files=FILES, settings=None, capabilities=CAPABILITIES, folders=None):
        for path, text in files.items():
            (tmp_path / path).parent.mkdir(parents=True, exist_ok=True)
            (tmp_path / path).write_text(text)
        client = start(settings=settings if settings is not None else {})
        roots = folders or [tmp_path]
        client.initialize(capabilities, rootUri=roots[0].as_uri(),
                          workspaceFolders=[{"uri": r.as_uri(), "name": r.name} for r in roots])
        return Repository(tmp_path, client)
    return make


def test_definition_leads_to_the_heading_or_file_a_link_names(repository):
    r = repository()
    r.open("README.md")
    assert r.places(r.at("textDocument/definition", "README.md", "setup](")) == ["docs/setup.md:4:3"]
    assert r.places(r.at("textDocument/definition", "README.md", "the file")) == ["docs/setup.md:0:0"]
    # A reference link leads to its target and to its definition.
    assert r.places(r.at("textDocument/definition", "README.md", "again")) == [
        "README.md:5:0", "docs/setup.md:4:3"]
    # A folder's fragment is its README's.
    assert r.places(r.at("textDocument/definition", "README.md", "the folder")) == ["docs/README.md:0:2"]
    assert r.at("textDocument/definition", "README.md", "Jump") == []


def test_references_of_a_heading_a_link_and_a_file(repository):
    r = repository(settings={"wiki": True})
    r.open("docs/setup.md")
    first_install = r.at("textDocument/references", "docs/setup.md", "Install", context={"includeDeclaration": False})
    # Definitions count, used or not, and the document's own links, and a wiki link by heading text.
    assert r.places(first_install) == [
        "README.md:2:12", "README.md:3:53", "README.md:5:5", "README.md:6:9",
        "docs/setup.md:10:15", "docs/setup.md:10:57"]
    second = r.at("textDocument/references", "docs/setup.md", "Install", nth=1,
                  context={"includeDeclaration": True})
    assert r.places(second) == ["docs/setup.md:10:35", "docs/setup.md:8:3"]
    # The title stands for the file too.
    title = r.at("textDocument/references", "docs/setup.md", "Setup", context={"includeDeclaration": False})
    assert r.places(title) == ["README.md:2:62"]
    # Anywhere else: every link to the file.
    anywhere = r.at("textDocument/references", "docs/setup.md", "How to", context={"includeDeclaration": False})
    assert len(anywhere) == 9
    r.open("README.md")
    on_link = r.at("textDocument/references", "README.md", "setup](", context={"includeDeclaration": False})
    assert r.places(on_link) == r.places(first_install)


def test_a_heading_renamed_renames_what_names_it_and_the_repeats_it_shifts(repository):
    r = repository()
    r.open("docs/setup.md")
    prepared = r.at("textDocument/prepareRename", "docs/setup.md", "Install")
    assert prepared["placeholder"] == "Install"
    edit = r.at("textDocument/rename", "docs/setup.md", "Install", newName="Installing")
    changes = {Path(c["textDocument"]["uri"][7:]).relative_to(r.root).as_posix(): c["edits"]
               for c in edit["documentChanges"]}
    assert sorted(e["newText"] for e in changes["README.md"]) == ["installing"] * 3
    # The second "Install" was "install-1" and becomes "install".
    assert sorted(e["newText"] for e in changes["docs/setup.md"]) == [
        "Installing", "install", "installing", "installing"]
    refused = r.client.request("textDocument/rename", {
        "textDocument": {"uri": r.uri("docs/setup.md")},
        "position": r.position("docs/setup.md", "How to"), "newName": "x"})
    assert refused["error"]["code"] == -32803


def test_a_reference_label_renamed_renames_its_definitions_and_uses(repository):
    r = repository({"a.md": "[x][Old], [old][] and [OLD].\n\n[old]: b.md\n", "b.md": ""})
    r.open("a.md")
    edit = r.at("textDocument/rename", "a.md", "Old", newName="new")
    texts = [e["newText"] for c in edit["documentChanges"] for e in c["edits"]]
    assert texts == ["new"] * 4


def test_files_moved_keep_their_links(repository):
    r = repository()
    edit = r.client.result("workspace/willRenameFiles", {"files": [
        {"oldUri": r.uri("docs/setup.md"), "newUri": r.uri("guide/setup.md")}]})
    changes = {Path(c["textDocument"]["uri"][7:]).relative_to(r.root).as_posix():
               sorted(e["newText"] for e in c["edits"]) for c in edit["documentChanges"]}
    assert changes == {
        "README.md": ["guide/setup.md", "guide/setup.md#install", "guide/setup.md#install",
                      "guide/setup.md#install"],
        "docs/README.md": ["../guide/setup.md#instal"],
    }


def test_diagnostics_on_open_and_change_and_for_closed_files_a_change_breaks_or_mends(repository):
    r = repository()
    r.open("docs/README.md")
    problems = r.diagnostics("docs/README.md", version=1)
    assert [(d["code"], d["severity"], d["source"]) for d in problems] == [
        ("missing-anchor-other-file", 1, "tarnwick-md")]
    assert 'did you mean "setup.md#install"' in problems[0]["message"]
    # Renaming both headings in the open setup.md breaks README.md's links, closed as it is.
    r.open("docs/setup.md")
    text = r.text("docs/setup.md")
    r.client.change(r.uri("docs/setup.md"), 2, [{"text": text.replace("## Install", "## Setting up")}])
    broken = r.diagnostics("README.md")
    # The definition no link uses is not checked; the one "again" uses is, where it stands.
    assert sorted(d["range"]["start"]["line"] for d in broken) == [2, 5]
    r.client.change(r.uri("docs/setup.md"), 3, [{"text": text}])
    assert r.diagnostics("README.md") == []


def test_settings_ignore_codes_and_read_wiki_links(repository):
    r = repository({"a.md": "[x](missing.md) [[nowhere]]\n"},
                   settings={"ignore": ["missing-file"], "wiki": True})
    r.open("a.md")
    assert [d["code"] for d in r.diagnostics("a.md", version=1)] == ["missing-page"]


def test_quick_fixes_write_the_suggestion(repository):
    r = repository()
    r.open("docs/README.md")
    diagnostic = r.diagnostics("docs/README.md", version=1)[0]
    actions = r.client.result("textDocument/codeAction", {
        "textDocument": {"uri": r.uri("docs/README.md")}, "range": diagnostic["range"],
        "context": {"diagnostics": [diagnostic]}})
    assert [a["title"] for a in actions] == ['Replace with "setup.md#install"']
    edit = actions[0]["edit"]["changes"][r.uri("docs/README.md")][0]
    assert edit["newText"] == "setup.md#install"
    assert edit["range"] == {"start": {"line": 2, "character": 33}, "end": {"line": 2, "character": 48}}


@pytest.mark.parametrize("typed, labels", [
    ("[a](", ["docs/", "img/"]),  # not the document itself
    ("[a](docs/s", ["README.md", "setup.md"]),
    ("[a](docs/setup.md#", ["setup", "install", "install-1"]),
    ("[a](#", ["guide"]),
    ("[a][", ["s", "stale"]),
])
def test_completion_of_paths_anchors_and_labels(repository, typed, labels):
    r = repository()
    text = r.text("README.md") + typed
    r.open("README.md", text)
    end = {"line": text.count("\n"), "character": len(typed)}
    result = r.client.result("textDocument/completion", {
        "textDocument": {"uri": r.uri("README.md")}, "position": end})
    assert sorted(item["label"] for item in result["items"]) == sorted(labels)


def test_hover_shows_the_sections_heading_path_and_docstring(repository):
    r = repository()
    r.open("README.md")
    hover = r.at("textDocument/hover", "README.md", "setup](")
    assert "**Setup > Install**" in hover["contents"]["value"]
    assert "Run the installer." in hover["contents"]["value"]


def test_document_links_and_workspace_symbols(repository):
    r = repository()
    r.open("README.md")
    links = r.client.result("textDocument/documentLink", {"textDocument": {"uri": r.uri("README.md")}})
    assert len(links) == 6 and links[0]["target"] == r.uri("docs/setup.md")
    symbols = r.client.result("workspace/symbol", {"query": "inst"})
    assert [(s["name"], s["containerName"]) for s in symbols] == [("Install", "Setup"), ("Install", "Setup")]


def test_files_changed_outside_the_editor(repository):
    r = repository({"a.md": "[x](new.md) [y](b.md#later)\n", "b.md": "# B\n"})
    r.client.receive(lambda m: m.get("method") == "client/registerCapability")
    r.open("a.md")
    assert len(r.diagnostics("a.md", version=1)) == 2
    (r.root / "new.md").write_text("")
    (r.root / "b.md").write_text("# B\n\n## Later\n")
    r.client.notify("workspace/didChangeWatchedFiles", {"changes": [
        {"uri": r.uri("new.md"), "type": 1}, {"uri": r.uri("b.md"), "type": 2}]})
    while r.diagnostics("a.md"):
        pass
    (r.root / "b.md").unlink()
    r.client.notify("workspace/didChangeWatchedFiles", {"changes": [{"uri": r.uri("b.md"), "type": 3}]})
    assert [d["code"] for d in r.diagnostics("a.md")] == ["missing-file"]


def test_each_workspace_folder_is_a_repository_of_its_own(tmp_path, repository):
    for name in ("one", "two"):
        (tmp_path / name).mkdir()
        (tmp_path / name / "a.md").write_text("# A\n\n[b](b.md)\n")
    (tmp_path / "one" / "b.md").write_text("")
    r = repository(files={}, folders=[tmp_path / "one", tmp_path / "two"])
    r.open("one/a.md")
    r.open("two/a.md")
    assert r.diagnostics("one/a.md", version=1) == []
    assert [d["code"] for d in r.diagnostics("two/a.md", version=1)] == ["missing-file"]


def check_problems(tarnwick_md, root: Path, path: str) -> list:
    """What `tarnwick-md check` finds in a file of a repository: (line, code) pairs."""
    out = subprocess.run([tarnwick_md, "check", "--format", "json", "--root", str(root),
                          str(root / path)], capture_output=True, text=True).stdout
    return sorted((p["line"] - 1, p["code"]) for p in map(json.loads, out.splitlines()))


def test_random_edits_give_the_problems_a_fresh_check_gives(repository, tarnwick_md):
    """Edits typed at random places: after each, the diagnostics of the document are those
    `tarnwick-md check` finds in the same text."""
    pieces = ["[a](docs/setup.md#install)", "[b](#setup)", "# Setup\n", "[c][s]", "\n\n",
              "[s]: docs/setup.md#nowhere\n", "<a href=\"img/logo.png\">", "```\n", "x", "## Install\n"]
    r = repository()
    rng = random.Random(11)
    text = r.text("docs/setup.md")
    r.open("docs/setup.md", text)
    r.diagnostics("docs/setup.md", version=1)
    for version in range(2, 42):
        at = rng.randrange(len(text) + 1)
        if rng.random() < 0.3 and at < len(text):
            end = min(len(text), at + rng.randrange(1, 12))
            inserted = ""
        else:
            end, inserted = at, rng.choice(pieces)
        line = text.count("\n", 0, at)
        start = {"line": line, "character": at - (text.rfind("\n", 0, at) + 1)}
        end_line = text.count("\n", 0, end)
        stop = {"line": end_line, "character": end - (text.rfind("\n", 0, end) + 1)}
        r.client.change(r.uri("docs/setup.md"), version,
                        [{"range": {"start": start, "end": stop}, "text": inserted}])
        text = text[:at] + inserted + text[end:]
        published = r.diagnostics("docs/setup.md", version=version)
        (r.root / "docs/setup.md").write_text(text)
        assert sorted((d["range"]["start"]["line"], d["code"]) for d in published) == \
            check_problems(tarnwick_md, r.root, "docs/setup.md"), text

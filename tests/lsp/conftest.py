"""The language server's tests drive `tarnwick-md lsp` as editors do: TARNWICK_MD names the
built command (scripts/test sets it)."""

import os

import pytest

from lsp_client import Client

# What a client of today says it supports, for the tests that need a usual client.
CAPABILITIES = {
    "textDocument": {"documentSymbol": {"hierarchicalDocumentSymbolSupport": True},
                     "synchronization": {"didSave": True}},
    "general": {"positionEncodings": ["utf-16"]},
}


@pytest.fixture(scope="session")
def tarnwick_md() -> str:
    binary = os.environ.get("TARNWICK_MD")
    if not binary:
        pytest.fail("TARNWICK_MD must name the built tarnwick-md")
    return os.path.abspath(binary)


@pytest.fixture
def start(tarnwick_md):
    """Starts servers; any still running at the end of the test is killed."""
    clients = []

    def start(*args, **options) -> Client:
        client = Client(tarnwick_md, *args, **options)
        clients.append(client)
        return client

    yield start
    for client in clients:
        client.kill()


@pytest.fixture
def server(start) -> Client:
    """A server initialized by a usual client."""
    client = start()
    client.initialize(CAPABILITIES)
    return client

"""A language server client for the tests: it starts `tarnwick-md lsp`, writes messages (or raw
bytes) to it, reads what it writes back on a thread of its own, and answers the requests a
server sends its client."""

import json
import queue
import subprocess
import threading

TIMEOUT = 20  # seconds: a server that stalls fails the test instead of hanging it


def frame(body: bytes) -> bytes:
    return b"Content-Length: %d\r\n\r\n" % len(body) + body


class Client:
    def __init__(self, binary: str, *args: str, settings=None, cwd=None, prefix=()):
        """`prefix`: the words of a command that runs the server, such as another user's."""
        self.process = subprocess.Popen(
            [*prefix, binary, "lsp", *args], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, cwd=cwd)
        self.settings = settings if settings is not None else {}
        self.next_id = 1
        self.messages = queue.Queue()
        self.notifications = []  # every notification the server sent, in order
        self.server_requests = []  # every request the server sent, in order
        self.responses = []  # every response to the client's requests, in order
        self.stderr = b""
        threading.Thread(target=self._read, daemon=True).start()
        threading.Thread(target=self._read_stderr, daemon=True).start()

    def _read(self):
        out = self.process.stdout
        while True:
            length = None
            while True:
                line = out.readline()
                if not line:
                    self.messages.put(None)
                    return
                line = line.strip()
                if not line:
                    break
                name, _, value = line.partition(b":")
                if name.lower() == b"content-length":
                    length = int(value)
            self.messages.put(json.loads(out.read(length)))

    def _read_stderr(self):
        self.stderr = self.process.stderr.read()

    def send(self, message: dict):
        self.send_raw(frame(json.dumps(message).encode()))

    def send_raw(self, data: bytes):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def notify(self, method: str, params=None):
        self.send({"jsonrpc": "2.0", "method": method, **({"params": params} if params is not None else {})})

    def send_request(self, method: str, params=None) -> int:
        id = self.next_id
        self.next_id += 1
        self.send({"jsonrpc": "2.0", "id": id, "method": method,
                   **({"params": params} if params is not None else {})})
        return id

    def receive(self, predicate, timeout=TIMEOUT) -> dict:
        """The next message that satisfies `predicate`; requests from the server are answered
        and notifications kept on the way."""
        while True:
            message = self.messages.get(timeout=timeout)
            if message is None:
                raise EOFError("the server closed its output")
            if "method" in message and "id" in message:
                self.server_requests.append(message)
                self._answer(message)
            elif "method" in message:
                self.notifications.append(message)
            else:
                self.responses.append(message)
            if predicate(message):
                return message

    def _answer(self, request: dict):
        method = request["method"]
        if method == "workspace/configuration":
            result = [self.settings for _ in request["params"]["items"]]
        else:
            result = None
        self.send({"jsonrpc": "2.0", "id": request["id"], "result": result})

    def response(self, id) -> dict:
        return self.receive(lambda m: m.get("id") == id and "method" not in m)

    def request(self, method: str, params=None) -> dict:
        """The whole response: "result" or "error"."""
        return self.response(self.send_request(method, params))

    def result(self, method: str, params=None):
        response = self.request(method, params)
        assert "error" not in response, response
        return response["result"]

    def initialize(self, capabilities=None, **params) -> dict:
        result = self.result("initialize", {"processId": None, "rootUri": None,
                                            "capabilities": capabilities or {}, **params})
        self.notify("initialized", {})
        return result

    def open(self, uri: str, text: str, version=1):
        self.notify("textDocument/didOpen", {"textDocument": {
            "uri": uri, "languageId": "markdown", "version": version, "text": text}})

    def change(self, uri: str, version: int, changes: list):
        self.notify("textDocument/didChange", {"textDocument": {"uri": uri, "version": version},
                                               "contentChanges": changes})

    def exit(self, shutdown=True) -> int:
        if shutdown:
            assert self.result("shutdown") is None
        self.notify("exit")
        return self.wait()

    def wait(self) -> int:
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        return self.process.wait(timeout=TIMEOUT)

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()

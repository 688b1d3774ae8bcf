"""Control sockets that answer as an agent does, for tests of what asks agents."""

import json
import os
import pathlib
import socket
import threading
import time

GLOBAL = "224.0.0.0/4"


def bsr_view(address, digest="7f8c5d15", own=False):
    bsr = address and {"address": address, "priority": 64, "hashMaskLen": 30, "own": own, "uptime": 100.0,
                       "expiresIn": None if own else 100.0}
    return {"zones": [{"zone": GLOBAL, "scoped": False, "candidate": own, "state": "Accept Preferred",
                       "bsr": bsr, "bootstrapTimer": 10.0, "scopeZoneTimer": None, "nextMessage": None,
                       "ranges": 1, "rps": 1, "digest": digest}]}


def views(address="10.0.0.1"):
    return {"bsr": bsr_view(address), "rp-set": {"zones": []}, "neighbors": {"neighbors": []},
            "interfaces": {"interfaces": []}, "borders": {"borders": []}, "drops": {"drops": []},
            "history": {"entries": []}}


class FakeAgent:
    """Listens at a path; `answers` has a view by name, or what makes it of a request; `text` the metrics."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.answers = views()
        self.text = ("# HELP pimbsr_uptime_seconds Time.\n# TYPE pimbsr_uptime_seconds gauge\n"
                     "pimbsr_uptime_seconds 7\n# HELP pimbsr_neighbors Neighbors.\n"
                     '# TYPE pimbsr_neighbors gauge\npimbsr_neighbors{interface="eth0"} 2\n')
        self.asked, self.watchers, self.clients, self.listener = [], [], [], None
        self.slow = set()  # views that are not answered while they are in it
        self.delay = threading.Event()
        self.delay.set()
        self.start()

    def start(self):
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(self.path))
        self.listener.listen(64)
        threading.Thread(target=self.accept, args=(self.listener,), daemon=True).start()

    def stop(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.path.unlink()
        for client in self.clients:
            try:
                client.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        self.clients, self.watchers = [], []

    def accept(self, listener):
        while True:
            try:
                client = listener.accept()[0]
            except OSError:
                return
            self.clients.append(client)
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        try:
            with client.makefile() as lines:
                for line in lines:
                    self.asked.append(line)
                    self.delay.wait(20)
                    while json.loads(line).get("what") in self.slow:
                        time.sleep(0.02)
                    client.sendall(self.answer(json.loads(line)) + b"\n")
                    if json.loads(line)["command"] == "watch":
                        self.watchers.append(client)
            if client in self.watchers:
                self.watchers.remove(client)
        except OSError:
            pass
        finally:
            client.close()

    def answer(self, request):
        if request["command"] == "show" and request["what"] not in self.answers:
            return b'{"ok":false,"error":"no such view"}'
        view = self.answers.get(request.get("what"))
        result = {"watch": {}, "metrics": {"text": self.text},
                  "show": view(request) if callable(view) else view}[request["command"]]
        return json.dumps({"ok": True, "result": result}, separators=(",", ":")).encode()

    def publish(self, event):
        for watcher in list(self.watchers):
            watcher.sendall(json.dumps(event).encode() + b"\n")


def memory_of(process):
    """Resident memory of a process in MiB."""
    fields = pathlib.Path(f"/proc/{process}/statm").read_text().split()
    return int(fields[1]) * os.sysconf("SC_PAGE_SIZE") / (1 << 20)

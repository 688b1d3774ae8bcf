"""Clients of a control socket that misbehave, and one that doesn't.

Usage: clients.py SOCKET KIND COUNT SECONDS [UID]. Keeps COUNT connections of that user and connects again
where one was ended. KIND is idle (sends nothing), half (sends half a request), unread (asks and reads no
answer), watch (watches and reads nothing), count (the same with a number of the model), connect (connects
and closes at once, as fast as it can), ask, views, tree or odd. These ask over one connection after the other
for a short view, for the RP sets, for pages of the model's tree or for paths that name nothing, and read the
answers; in the end they print as JSON how many were `asked`, the `failures`, and the seconds of the
`worst`."""

import json
import os
import select
import socket
import struct
import sys
import time

SHOW = b'{"command":"show","what":"config"}\n'
RPS = "status/crpStatus['224.0.0.0/4']/status/crpSet['224.0.0.0/4']/rp"  # of which there are many
LATE = RPS + "['10.9.62.1']"  # one of the last


def request(**words):
    return json.dumps(words).encode() + b"\n"


SENT = {"idle": b"", "half": b'{"command":"show"', "unread": SHOW * 50, "watch": b'{"command":"watch"}\n',
        "count": request(command="watch", path=RPS), "connect": b""}
TURN = 0.02  # seconds between two looks at the connections
ODD = ("status/" + "x" * 3900, RPS + "['10.255.255.255']", RPS + "['" + "\\'" * 900 + "']", RPS + "[",
       RPS + "['%zz']", "/" * 3000, "[" * 3000, "'", "status//", "\u0000", "root/" * 600, "\ufffd" * 500)
ASKED = {"ask": [request(command="show", what="bsr")], "views": [request(command="show", what="rp-set")],
         "tree": [request(command="show", what="tree", **more) for more in (
             {"path": RPS}, {}, {"path": RPS, "from": LATE}, {"path": "status"}, {"path": "root"})],
         "odd": [request(command="get", path=path) for path in ODD]}
PATIENCE = 5  # seconds after which an answer counts as failed


def connected(path, kind):
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    client.settimeout(1)
    try:
        client.connect(path)
        client.setblocking(False)
        client.send(SENT[kind])
        return client
    except OSError:  # the agent is busy or has ended the connection
        client.close()
        return None


def was_ended(client):
    """Whether the agent has ended a connection. The end follows what was not read, which stays there."""
    poll = select.poll()
    poll.register(client, select.POLLRDHUP | select.POLLHUP | select.POLLERR)
    return bool(poll.poll(0))


def keep(path, kind, count, end):
    clients = []
    while time.monotonic() < end:
        ended = [client for client in clients if kind == "connect" or was_ended(client)]
        for client in ended:
            clients.remove(client)
            client.close()
        clients += filter(None, (connected(path, kind) for _ in range(count - len(clients))))
        if kind != "connect":
            time.sleep(TURN)


def failure_of(path, kind, line):
    """Why a request gets no answer; None if it gets one. That of an odd path is an error."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        # Timeouts of the system, not of Python: a connection waits until there is room for it.
        for direction in (socket.SO_SNDTIMEO, socket.SO_RCVTIMEO):
            client.setsockopt(socket.SOL_SOCKET, direction, struct.pack("@ll", PATIENCE, 0))
        try:
            client.connect(path)
            client.sendall(line)
            parts = [b""]
            while not parts[-1].endswith(b"\n"):
                parts.append(client.recv(1 << 20))
                if not parts[-1]:
                    return "the connection ended"
            error = json.loads(b"".join(parts)).get("error")
            return error if kind != "odd" else None if error else "an odd path names something"
        except OSError as error:
            return str(error)


def ask(path, kind, end):
    asked, failures, worst = 0, [], 0
    while time.monotonic() < end:
        start = time.monotonic()
        if failure := failure_of(path, kind, ASKED[kind][asked % len(ASKED[kind])]):
            failures.append(failure)
        asked += 1
        worst = max(worst, time.monotonic() - start)
        time.sleep(TURN)
    print(json.dumps({"asked": asked, "failures": failures, "worst": worst}))


def become(user):
    """Leaves this process to a user, in the group of root alone, to which a lab's sockets belong."""
    os.setgroups([])
    os.setgid(0)
    os.setuid(user)


if __name__ == "__main__":
    PATH, KIND, COUNT, SECONDS = sys.argv[1], sys.argv[2], int(sys.argv[3]), float(sys.argv[4])
    if len(sys.argv) > 5:
        become(int(sys.argv[5]))
    print("ready", flush=True)
    if KIND in ASKED:
        ask(PATH, KIND, time.monotonic() + SECONDS)
    else:
        keep(PATH, KIND, COUNT, time.monotonic() + SECONDS)

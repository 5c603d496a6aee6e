#!/usr/bin/env python3
"""peer.py HOST PORT USER PASSWORD: logs in and calls `add`, as docs/protocol.md describes it.

Status 0 if the sum is the right one and a wrong password is refused; otherwise 1, with one line on
stderr.
"""

import hashlib
import json
import socket
import struct
import sys

DATA, LOGIN = 0xA55A5AA5, 0xA55A5AA6


def send_packet(stream, flag, payload):
    stream.write(struct.pack(">III", flag, 0, len(payload)) + payload)
    stream.flush()


def receive_packet(stream):
    flag, _, length = struct.unpack(">III", stream.read(12))
    return flag, stream.read(length)


def call_add(stream, user, password, sentcnt):
    digest = hashlib.md5((user + "add" + password).encode()).hexdigest()
    request = {"method": "add", "param": {"a": 1900, "b": 84}, "sentcnt": sentcnt,
               "user": {"name": user, "digest": digest}}
    send_packet(stream, DATA, json.dumps(request).encode())
    while True:  # keep-alives and notifications may come in between
        text = receive_packet(stream)[1].split(b"\0")[0]
        answer = json.loads(text) if text else {}
        if answer.get("sentcnt") == sentcnt:
            return answer["error"]["errorcode"], answer.get("sum")


def main(host, port, user, password):
    with socket.create_connection((host, int(port)), timeout=10) as sock:
        stream = sock.makefile("rwb")
        send_packet(stream, LOGIN, b"owner;908172")
        steps = [(receive_packet(stream), (LOGIN, b"OK")),
                 (call_add(stream, user, password, 1), (0, 1984)),
                 (call_add(stream, user, password + "?", 2), (-32605, None))]
    for got, expected in steps:
        if got != expected:
            raise ValueError(f"expected {expected}, got {got}")


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except (OSError, ValueError, TypeError, KeyError, struct.error) as problem:
        sys.exit(f"peer.py: {problem}")

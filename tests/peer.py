#!/usr/bin/env python3
"""Speaks the packet protocol from its description alone (docs/protocol.md).

peer.py HOST PORT USER PASSWORD: logs in, calls `add` with a digest, and ends with status 0 only if
the sum is the right one and a wrong password is refused; 1 otherwise, with one line on stderr.
"""

import hashlib
import json
import socket
import struct
import sys

DATA, LOGIN = 0xA55A5AA5, 0xA55A5AA6
HEADER = struct.Struct(">III")  # flag, type, length


def send_packet(sock, flag, payload):
    sock.sendall(HEADER.pack(flag, 0, len(payload)) + payload)


def receive_exactly(sock, size):
    data = b""
    while len(data) < size:
        piece = sock.recv(size - len(data))
        if not piece:
            raise ValueError("the device closed the connection")
        data += piece
    return data


def receive_packet(sock):
    flag, _, length = HEADER.unpack(receive_exactly(sock, HEADER.size))
    return flag, receive_exactly(sock, length)


def log_in(sock, record=b"owner;908172"):
    send_packet(sock, LOGIN, record)
    reply = receive_packet(sock)
    if reply != (LOGIN, b"OK"):
        raise ValueError(f"login refused: {reply}")


def call(sock, user, password, method, param, sentcnt):
    digest = hashlib.md5((user + method + password).encode()).hexdigest()
    request = {"method": method, "param": param, "sentcnt": sentcnt,
               "user": {"name": user, "digest": digest}}
    send_packet(sock, DATA, json.dumps(request).encode())
    while True:  # keep-alives and notifications may come in between
        flag, payload = receive_packet(sock)
        text = payload.split(b"\0")[0]
        if flag != DATA or not text:
            continue
        message = json.loads(text)
        if message.get("sentcnt") == sentcnt and "error" in message:
            return message


def main():
    host, port, user, password = sys.argv[1:5]
    with socket.create_connection((host, int(port)), timeout=10) as sock:
        log_in(sock)
        answer = call(sock, user, password, "add", {"a": 1900, "b": 84}, 4711)
        if answer["error"] != {"errorcode": 0}:
            raise ValueError(f"add failed: {answer['error']}")
        if answer.get("sum") != 1984:
            raise ValueError(f"1900 + 84 is not 1984: {answer}")
        refused = call(sock, user, password + "?", "add", {"a": 1, "b": 2}, 4712)
        if refused["error"].get("errorcode") != -32605:
            raise ValueError(f"a wrong password was not refused: {refused}")


if __name__ == "__main__":
    try:
        main()
    except (IndexError, OSError, ValueError, KeyError) as problem:
        print(f"peer.py: {problem}", file=sys.stderr)
        sys.exit(1)

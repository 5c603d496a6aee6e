#!/usr/bin/env python3
"""What hyrpc says when things go wrong: exit status and exactly one line on stderr.

usage: hyrpc_test.py COMMAND...   (hyrpc, behind an emulator if need be)
"""
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest

HYRPC = []
DATA, LOGIN = 0xA55A5AA5, 0xA55A5AA6


def packet(flag, payload, length=None):
    return struct.pack(">III", flag, 0, len(payload) if length is None else length) + payload


class Peer:
    """A listener that reads one login request and then does what a script of byte strings says."""

    def __init__(self, *replies, close=False):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.listener.getsockname()[1]
        self.replies, self.close_at_end, self.connections = replies, close, []
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        try:
            connection, _ = self.listener.accept()
        except OSError:
            return
        self.connections.append(connection)
        for reply in self.replies:
            connection.recv(4096)
            connection.sendall(reply)
            time.sleep(0.05)
        if self.close_at_end:
            connection.close()

    def __enter__(self):
        return self.address

    def __exit__(self, *_):
        for connection in self.connections:
            connection.close()
        self.listener.close()


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class Hyrpc(unittest.TestCase):
    def run_hyrpc(self, *words):
        began = time.monotonic()
        done = subprocess.run(HYRPC + list(words), capture_output=True, text=True, timeout=60)
        return done, time.monotonic() - began

    def check(self, status, text, *words, seconds=None):
        done, took = self.run_hyrpc(*words)
        self.assertEqual(done.returncode, status, (words, done.stderr))
        self.assertRegex(done.stderr, r"\Ahyrpc: [^\n]+\n\Z", words)
        self.assertIn(text, done.stderr)
        self.assertEqual(done.stdout, "")
        if seconds:
            self.assertLess(took, seconds + 2)

    def test_bad_usage_ends_with_3(self):
        for text, *words in (
            ("ADDRESS is missing",),
            ("METHOD is missing", "127.0.0.1:80"),
            ("is none of", "127.0.0.1", "add"),
            ("is none of", "::1:80", "add"),
            ("is no port", "127.0.0.1:0", "add"),
            ("is no port", "127.0.0.1:65536", "add"),
            ("1 to 105", "unix:" + "n" * 106, "add"),
            ("not JSON", "127.0.0.1:80", "add", "{a}"),
            ("too many words", "127.0.0.1:80", "add", "{}", "{}"),
            ("go together", "-u", "me", "127.0.0.1:80", "add"),
            ("at most 31", "-u", "u" * 32, "-p", "x", "127.0.0.1:80", "add"),
            ("-t takes", "-t", "0", "127.0.0.1:80", "add"),
            ("bad option", "--nonsense", "127.0.0.1:80", "add"),
            ("cannot read", "--bin-in", "/nonexistent/file", "127.0.0.1:80", "add"),
        ):
            self.check(3, text, *words)

    def test_help_and_version_go_to_stdout(self):
        for option, text in (("--help", "usage: hyrpc"), ("--version", "hyrpc 1.")):
            done, _ = self.run_hyrpc(option)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertTrue(done.stdout.startswith(text))

    def test_answer_that_cannot_be_written_is_an_error(self):
        answer = b'{"method":"get","sentcnt":1,"error":{"errorcode":0}}\0' + b"x" * 100000
        with Peer(packet(LOGIN, b"OK"), packet(DATA, answer)) as address:
            done, _ = self.run_hyrpc("--bin-out", "/dev/full", "-t", "5", address, "get")
        self.assertEqual(done.returncode, 3)
        self.assertRegex(done.stderr, r"\Ahyrpc: cannot write /dev/full: No space left[^\n]*\n\Z")

    def test_nobody_listens(self):
        self.check(2, "cannot connect", "-t", "3", "127.0.0.1:%d" % free_port(), "add", seconds=3)
        self.check(2, "cannot connect", "-t", "3", "unix:hyrpc-test-nobody", "add", seconds=3)

    def test_peer_never_answers_the_login(self):
        with Peer() as address:
            self.check(2, "no answer", "-t", "1", address, "add", seconds=1)

    def test_login_refused(self):
        with Peer(packet(LOGIN, b"go away")) as address:
            self.check(2, "refused the login", "-t", "5", address, "add", seconds=1)

    def test_peer_speaks_another_protocol(self):
        with Peer(b"HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n") as address:
            self.check(2, "did not answer the login", "-t", "5", address, "add", seconds=1)

    def test_peer_turns_bad_after_the_login(self):
        login = packet(LOGIN, b"OK")
        for text, *replies in (
            ("no answer", packet(DATA, b"this is no JSON")),
            ("no answer", packet(DATA, b'{"method":"other","sentcnt":1}')),
            ("lost before", b"x" * 12),
            ("lost before", packet(DATA, b"", length=0xFFFFFFFF)),
        ):
            with Peer(login, *replies) as address:
                self.check(2, text, "-t", "2", address, "add", seconds=2)
        with Peer(login, close=True) as address:
            self.check(2, "lost before", "-t", "5", address, "add", seconds=1)


if __name__ == "__main__":
    HYRPC = sys.argv[1:]
    unittest.main(argv=sys.argv[:1], verbosity=2)

#!/usr/bin/env python3
"""What hyrpc prints and how it ends; with what goes wrong exactly one line stands on stderr.

usage: hyrpc_test.py COMMAND...   (hyrpc, behind an emulator if need be)
"""
import hashlib
import json
import os
import pathlib
import pty
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

HYRPC = []
DATA, LOGIN = 0xA55A5AA5, 0xA55A5AA6
KEEP_ALIVE = struct.pack(">III", DATA, 0, 0)
ROOT = pathlib.Path(__file__).resolve().parent.parent


def packet(flag, payload, length=None, kind=0):
    return struct.pack(">III", flag, kind, len(payload) if length is None else length) + payload


def read_to_end(terminal):
    """All that was written to the other end of a terminal, which is closed; then closes this end."""
    shown = b""
    try:
        while piece := os.read(terminal, 65536):
            shown += piece
    except OSError:  # EIO: the end
        pass
    os.close(terminal)
    return shown


class Peer:
    """A listener that reads one login request and then does what a script of replies says.

    A reply is a byte string, or a list of those: sent one after the other, each on its own.
    """

    def __init__(self, *replies, close=False):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.listener.getsockname()[1]
        self.replies, self.close_at_end, self.connections = replies, close, []
        self.received = b""
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        try:
            self.answer(self.listener.accept()[0])
        except OSError:  # hyrpc or the test has closed it
            pass

    def answer(self, connection):
        self.connections.append(connection)
        for reply in self.replies:
            self.received += connection.recv(4096)
            for piece in reply if isinstance(reply, list) else [reply]:
                connection.sendall(piece)
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


def answer(**members):
    return packet(DATA, json.dumps({"method": "add", "sentcnt": 1, **members}).encode())


def dumped(text, mark):
    """The payloads that the lines of `raw` show, cut out of the dump."""
    pattern = "^" + mark + r"   [0-9a-f]{4,}  ((?:(?:[0-9a-f]{2}|\*\*) ){1,16})"
    return "".join(re.findall(pattern, text, re.MULTILINE)).replace(" ", "")


class HyrpcCase(unittest.TestCase):
    def run_command(self, *words):
        began = time.monotonic()
        done = subprocess.run(words, capture_output=True, text=True, timeout=60, input="")
        return done, time.monotonic() - began

    def run_hyrpc(self, *words):
        return self.run_command(*HYRPC, *words)

    def objects(self, status, *words):
        """What --json prints; a failure must be told alike on both streams."""
        done, _ = self.run_hyrpc(*words, "--json")
        self.assertEqual(done.returncode, status, (words, done))
        found = [json.loads(line) for line in done.stdout.splitlines()]
        if status:
            self.assertEqual(done.stderr, "hyrpc: " + found[-1]["error"] + "\n")
        else:
            self.assertEqual(done.stderr, "")
            self.assertNotIn("error", found[-1])
        manual = (ROOT / "docs/man/hyrpc.1").read_text()
        for key in {key for one in found for key in one}:
            self.assertIn(f".It Va {key}\n", manual)
        return found

    def check(self, status, text, *words, seconds=None):
        done, took = self.run_hyrpc(*words)
        self.assertEqual(done.returncode, status, (words, done.stderr))
        self.assertRegex(done.stderr, r"\Ahyrpc: [^\n]+\n\Z", words)
        self.assertIn(text, done.stderr)
        self.assertEqual(done.stdout, "")
        if seconds:
            self.assertLess(took, seconds + 2)


class Failures(HyrpcCase):
    def test_bad_usage_ends_with_3(self):
        for text, *words in (
            ("ADDRESS is missing",),
            ("METHOD is missing", "127.0.0.1:80"),
            ("is none of", "127.0.0.1", "add"),
            ("is none of", "::1:80", "add"),
            ("is no port", "127.0.0.1:0", "add"),
            ("is no port", "127.0.0.1:65536", "add"),
            ("1 to 105", "unix:" + "n" * 106, "add"),
            ("not JSON near byte 3;", "127.0.0.1:80", "add", "{a}"),
            ("not JSON near byte 9;", "127.0.0.1:80", "add", '{"a": 1}}'),
            ("too many words", "127.0.0.1:80", "add", "{}", "{}"),
            ("go together", "-u", "me", "127.0.0.1:80", "add"),
            ("at most 31", "-u", "u" * 32, "-p", "x", "127.0.0.1:80", "add"),
            ("-t takes", "-t", "0", "127.0.0.1:80", "add"),
            ("bad option '--nonsense';", "--nonsense=secret", "127.0.0.1:80", "add"),
            ("bad option '-Z';", "-u", "me", "-p", "secret", "-Z", "127.0.0.1:80", "add"),
            ("needs a value", "127.0.0.1:80", "add", "-p"),
            ("value is empty", "--bin-out=", "127.0.0.1:80", "add"),
            ("ADDRESS is missing", "raw"),
            ("goes with raw", "--show-password", "127.0.0.1:80", "add"),
            ("goes with call", "raw", "--tlv", "127.0.0.1:80", "add"),
            ("exclude", "-u", "me", "-p", "x", "--password-file", "f", "127.0.0.1:80", "add"),
            ("exclude", "-l", "x", "--login-file", "f", "127.0.0.1:80", "add"),
            ("cannot be both", "-u", "me", "--password-file", "-", "--login-file", "-",
             "127.0.0.1:80", "add"),
            ("go together", "--password-file", "/dev/null", "127.0.0.1:80", "add"),
            ("it is empty", "-u", "me", "--password-file", "/dev/null", "127.0.0.1:80", "add"),
            ("cannot read /nonexistent", "--login-file", "/nonexistent", "127.0.0.1:80", "add"),
            ("zero byte", "--login-file", "/dev/zero", "127.0.0.1:80", "add"),
            ("cannot read", "--bin-in", "/nonexistent/file", "127.0.0.1:80", "add"),
        ):
            self.check(3, text, *words)

    def test_help_and_version_go_to_stdout(self):
        for option, text in (("--help", "usage: hyrpc"), ("--version", "hyrpc 1.")):
            done, _ = self.run_hyrpc(option)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertTrue(done.stdout.startswith(text))

    def test_closed_standard_streams_are_left_alone(self):
        for closed, status, printed in (("0<&- 2>&-", 1, 1), ("1>&-", 3, 0)):
            peer = Peer(packet(LOGIN, b"OK"), answer(error={"errorcode": 1}))
            with peer as address:
                done, _ = self.run_command("bash", "-c", f'exec "$@" {closed}', "bash", *HYRPC,
                                           "--json", address, "add")
            self.assertEqual((done.returncode, done.stdout.count("\n")), (status, printed), done)
            self.assertNotIn(b"hyrpc", peer.received)

    def test_answer_that_cannot_be_written_is_an_error(self):
        answer = b'{"method":"get","sentcnt":1,"error":{"errorcode":0}}\0' + b"x" * 100000
        with Peer(packet(LOGIN, b"OK"), packet(DATA, answer)) as address:
            done, _ = self.run_hyrpc("--bin-out", "/dev/full", "-t", "5", address, "get")
        self.assertEqual(done.returncode, 3)
        self.assertRegex(done.stderr, r"\Ahyrpc: cannot write /dev/full: No space left[^\n]*\n\Z")

    def test_nobody_listens(self):
        self.check(2, "cannot connect", "-t", "3", "127.0.0.1:%d" % free_port(), "add", seconds=3)
        self.check(2, "cannot connect", "-t", "3", "unix:hyrpc-test-nobody", "add", seconds=3)
        self.check(2, "no address known for 'a..b'", "a..b:8600", "add", seconds=3)

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

    def test_short_login_record_is_named(self):
        with Peer(packet(LOGIN, b"OK")) as address:
            self.check(2, "fewer than 11 characters", "-l", "me;secret", address, "add", seconds=9)

    def test_watch_ends_when_nobody_reads(self):
        note = packet(DATA, b'{"method":"event"}\0')
        with Peer([packet(LOGIN, b"OK")] + [note] * 40) as address:
            with subprocess.Popen(HYRPC + ["watch", address], stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, text=True) as watch:
                self.assertEqual(watch.stdout.readline(), '{"method":"event"}\n')
                watch.stdout.close()
                self.assertEqual(watch.wait(10), 3)
                self.assertRegex(watch.stderr.read(), r"\Ahyrpc: cannot write the result: .*\n\Z")


class Raw(HyrpcCase):
    def raw(self, peer_replies, *words, status=0):
        peer = Peer(packet(LOGIN, b"OK"), *peer_replies)
        with peer as address:
            done, _ = self.run_hyrpc("raw", "-t", "5", *words[:-1], address, *words[-1])
        self.assertEqual(done.returncode, status, done)
        return done.stdout, peer

    def test_shows_every_byte_of_both_ways(self):
        binary = bytes(range(256))
        reply = answer(error={"errorcode": 0})
        reply = packet(DATA, reply[12:] + b"\0" + binary)
        pieces = [KEEP_ALIVE + reply[:5], reply[5:14], reply[14:200], reply[200:]]
        text, peer = self.raw([pieces], "-l", "owner;tell-nobody", "--show-password", "-u", "me",
                              "-p", "secret", ["add", '{"a": 1}'])
        logins = re.findall(r"^(-> |<- )[0-9.]+ s  login  flag a55a5aa6  type 00000000 = 0  "
                            r"length ([0-9a-f]{8}) = (\d+)$", text, re.MULTILINE)
        self.assertEqual(logins, [("-> ", "00000011", "17"), ("<- ", "00000002", "2")])
        self.assertRegex(text, r"\n<- [0-9.]+ s  keep_alive  flag a55a5aa5  type 00000000 = 0  "
                               r"length 00000000 = 0\n<- [0-9.]+ s  data ")
        login, call = peer.received[12:29], peer.received[41:]
        self.assertEqual(dumped(text, "->"), (login + call).hex())
        self.assertEqual(dumped(text, "<-"), (b"OK" + reply[12:]).hex())
        for line in text.splitlines():
            self.assertLessEqual(len(line), 80)

    def test_hides_the_password_of_the_record(self):
        for record, shown in (("owner;tell;nobody", "owner;"), ("telltellnobody", "")):
            hidden = len(record) - len(shown)
            for form in ([], ["--json"]):
                text, peer = self.raw([answer()], "-l", record, *form, ["add"])
                self.assertIn(record.encode(), peer.received)
                for secret in ("tell", "nobody", b"tell".hex(), b"nobody".hex()):
                    self.assertNotIn(secret, text.replace(" ", ""))
            first = json.loads(text.splitlines()[0])
            self.assertEqual(first["payload_hex"], shown.encode().hex() + "**" * hidden)
            self.assertEqual(first["hidden_bytes"], hidden)

    def test_shows_what_never_became_a_packet(self):
        for reply, kind in (
                (b"HTTP/1.1 400", "bad_flag"),
                (packet(DATA, b"", length=0xFFFFFFFF), "bad_length"),
                (packet(DATA, b"half", length=9), "data"),
                (b"\xa5\x5a", "cut_header")):
            peer = Peer([packet(LOGIN, b"OK"), reply], close=True)
            with peer as address:
                *_, last, ending = self.objects(2, "raw", address)
            self.assertEqual((last["kind"], last["complete"]), (kind, False))
            self.assertEqual(last["header_hex"] + last.get("payload_hex", ""), reply.hex())
            self.assertEqual(ending["outcome"], "lost")

    def test_listens_and_tells_slow_payloads(self):
        slow = packet(DATA, b"slow")
        packets = [packet(DATA, b"one", kind=7), KEEP_ALIVE,
                   packet(DATA, b"two") + 200 * packet(DATA, b"too many")]
        with Peer([packet(LOGIN, b"OK"), *packets]) as address:
            *_, one, alive, two = self.objects(0, "raw", "-n", "2", address)
        self.assertEqual([bytes.fromhex(each["payload_hex"]) for each in (one, alive, two)],
                         [b"one", b"", b"two"])
        self.assertEqual((one["type"], alive["kind"]), (7, "keep_alive"))
        with Peer([packet(LOGIN, b"OK"), slow[:13]] + [b""] * 14 + [slow[13:]], close=True
                  ) as address:
            *_, last, _ = self.objects(2, "raw", address)
            self.assertGreater(last["took_s"], 0.5)
            self.assertEqual(bytes.fromhex(last["payload_hex"]), b"slow")


class HostilePeer(HyrpcCase):
    def test_texts_are_made_printable(self):
        error = b'{"errorcode":7,"message":"a\\u001b[2J\\nb \xc2\x9b\x9b\xe0\x80\x80\x7f"}'
        shown = r"a\u001b[2J\u000ab \u009b\ufffd\ufffd\ufffd\ufffd\u007f"
        failure = packet(DATA, b'{"method":"add","sentcnt":1,"error":' + error + b"}")
        tlv = b"h\x1b\0" + struct.pack(">IIBI", 14, 1, 7, 5) + b"\n\x1b[m\0"
        for words, status, reply, expected in (
                (("call",), 1, failure, [f"hyrpc: add: error 7: {shown}\n"]),
                (("call", "--json"), 1, failure, [f"hyrpc: add: error 7: {shown}\n"]),
                (("call", "--tlv"), 0, packet(DATA, answer()[12:] + b"\0" + tlv),
                 [r"h\u001b, 21 bytes", r"  \u000a\u001b[m"]),
                (("watch", "-n", "1"), 0, packet(DATA, b'{"\x7f":"\xff"}'),
                 [r'{"\u007f":"\ufffd"}'])):
            with Peer([packet(LOGIN, b"OK"), reply] if "watch" in words
                      else packet(LOGIN, b"OK"), reply) as address:
                done, _ = self.run_hyrpc(*words, address, *["add"][:"watch" not in words])
            self.assertEqual(done.returncode, status, done)
            self.assertRegex(done.stdout + done.stderr, r"\A[\n\t -~]+\Z")
            for each in expected:
                self.assertIn(each, done.stdout + done.stderr)


class JsonOutput(HyrpcCase):
    def test_call(self):
        error = {"errorcode": -7, "message": "too hot"}
        with tempfile.NamedTemporaryFile() as file:
            with Peer(packet(LOGIN, b"OK"), packet(DATA, answer(sum=3)[12:] + b"\0abc")) as address:
                [done] = self.objects(0, "--bin-out", file.name, address, "add")
            self.assertEqual(file.read(), b"abc")
            self.assertEqual(done, {
                "outcome": "ok", "errorcode": 0, "message": "", "binary_bytes": 3,
                "binary_file": file.name,
                "response": {"method": "add", "sentcnt": 1, "sum": 3}})
        with Peer(packet(LOGIN, b"OK"), answer(error=error)) as address:
            [done] = self.objects(1, address, "add")
        self.assertEqual((done["outcome"], done["errorcode"], done["message"], done["error"]),
                         ("method_error", -7, "too hot", "add: error -7: too hot"))

    def test_tlv(self):
        with Peer(packet(LOGIN, b"OK"), packet(DATA, answer()[12:] + b"\0no TLV")) as address:
            [done] = self.objects(1, "--tlv", address, "add")
        self.assertEqual((done["outcome"], done["binary_bytes"]), ("no_tlv", 6))

    def test_watch(self):
        note = {"method": "event", "number": 1}
        sent = packet(DATA, json.dumps(note).encode() + b"\0")
        with Peer([packet(LOGIN, b"OK"), sent]) as address:
            [done] = self.objects(0, "watch", "-n", "1", address)
        self.assertEqual(done["notification"], note)

    def test_bench(self):
        answers = [answer(sentcnt=i + 1, error={"errorcode": int(i == 3)}) for i in range(6)]
        with Peer(packet(LOGIN, b"OK"), *answers, close=True) as address:
            [done] = self.objects(2, "bench", "-n", "7", address, "add")
        counts = ("connections", "calls_per_connection", "calls", "errors", "other_answers",
                  "unanswered")
        # One call came before those that count; the eighth finds the connection closed.
        self.assertEqual([done[key] for key in counts], [1, 7, 5, 1, 1, 1])
        self.assertLessEqual(done["p50_ms"], done["p99_ms"])
        self.assertLessEqual(done["p99_ms"], done["max_ms"])
        self.assertGreaterEqual(done["seconds"] * 1000, done["max_ms"])
        self.assertAlmostEqual(done["calls_per_second"] * done["seconds"], 5, delta=0.1)

    def test_failures(self):
        for status, outcome, *words in (
                (3, "bad_usage", "bench"),
                (3, "bad_usage", "127.0.0.1:80", "add", "{a}"),
                (3, "file_error", "--bin-in", "/nonexistent", "127.0.0.1:80", "add"),
                (2, "connect_failed", "-t", "1", "unix:hyrpc-test-nobody", "add")):
            [done] = self.objects(status, *words)
            self.assertEqual((done["outcome"], set(done)), (outcome, {"outcome", "error"}))


class Secrets(HyrpcCase):
    def sent(self, *words, stdin="", **environment):
        """The login record and the digest that a peer receives, and hyrpc's command line."""
        peer = Peer(packet(LOGIN, b"OK"))
        with peer as address:
            with subprocess.Popen(HYRPC + ["-t", "2", *words, address, "add"], text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL,
                                  env={**os.environ, **environment}) as call:
                call.stdin.write(stdin)
                call.stdin.close()
                while peer.received.count(b"\xa5\x5a\x5a") < 1 and call.poll() is None:
                    time.sleep(0.02)
                command = pathlib.Path(f"/proc/{call.pid}/cmdline").read_bytes()
                time.sleep(0.2)
                peer.received += peer.connections[0].recv(4096)
        record, _, request = peer.received[12:].partition(struct.pack(">II", DATA, 0))
        return record.decode(), json.loads(request[4:])["user"]["digest"], command

    def test_sources_and_their_order(self):
        digest = {word: hashlib.md5(f"meadd{word}".encode()).hexdigest()
                  for word in ("of-option", "of-file", "of-variable")}
        with tempfile.TemporaryDirectory() as folder:
            password, login = folder + "/password", folder + "/login"
            pathlib.Path(password).write_bytes(b"of-file\r\nsecond line")
            pathlib.Path(login).write_bytes(b"owner;of-file")
            variables = {"HYRPC_PASSWORD": "of-variable", "HYRPC_LOGIN": "owner;of-variable"}
            files = ("--password-file", password, "--login-file", login)
            for source, words, stdin in (
                    ("of-variable", (), ""),
                    ("of-file", files, ""),
                    ("of-file", (*files[2:], "--password-file", "-"), "of-file\nmore"),
                    ("of-option", ("-p", "of-option", "--login=owner;of-option"), "")):
                record, proof, command = self.sent("-u", "me", *words, stdin=stdin, **variables)
                self.assertEqual((record, proof), ("owner;" + source, digest[source]))
                # An emulator keeps the words it was started with.
                if source != "of-option" or len(HYRPC) == 1:
                    self.assertNotIn(source.encode(), command)


class Interfaces(HyrpcCase):
    def options_of_help(self):
        done, _ = self.run_hyrpc("--help")
        for line in done.stdout.splitlines():
            self.assertLessEqual(len(line), 80, line)
        rows = re.findall(r"^  (?:(-\w), |    )(--[\w-]+)( [A-Z]+)?  ", done.stdout, re.MULTILINE)
        self.assertGreater(len(rows), 15)
        return rows

    def complete(self, *words):
        script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); ' \
                 '_hyrpc; printf "%s\\n" "${COMPREPLY[@]}"'
        done = subprocess.run(
            ["bash", "-c", script, "bash", str(ROOT / "tools/hyrpc/completion/hyrpc"), "hyrpc",
             *words], capture_output=True, text=True, timeout=10)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [line for line in done.stdout.split("\n") if line]

    def test_manual_and_completion_know_every_option(self):
        rows = self.options_of_help()
        manual = (ROOT / "docs/man/hyrpc.1").read_text()
        shown = re.findall(r"^\.It (?:Fl (\w) , )?Fl (-[\w-]+)( Ar \w+)?$", manual, re.MULTILINE)
        self.assertEqual(
            sorted((letter and "-" + letter, "-" + name, bool(value))
                   for letter, name, value in shown),
            sorted((letter, name, bool(value)) for letter, name, value in rows))
        spelled = {form for row in rows for form in row[:2] if form}
        words = ("call", "watch", "raw", "bench", "127.0.0.1:80")
        self.assertEqual({one for word in words for one in self.complete(word, "-")}, spelled)
        for letter, name, value in rows:  # what takes a value is not followed by options
            if value:
                self.assertNotIn("--json", self.complete("call", name, "-"))
                self.assertTrue(not letter or "--json" not in self.complete("call", letter, "-"))

    @unittest.skipUnless(shutil.which("mandoc"), "no mandoc")
    def test_manual_is_clean(self):
        done = subprocess.run(["mandoc", "-Tlint", str(ROOT / "docs/man/hyrpc.1")],
                              capture_output=True, text=True, timeout=10)
        # Which pages it refers to are installed is not the page's business.
        self.assertEqual([line for line in (done.stdout + done.stderr).splitlines()
                          if "referenced manual not found" not in line and "mandoc.db" not in line], [])

    def test_completion(self):
        self.assertEqual(self.complete("b"), ["bench"])
        self.assertEqual(self.complete("raw", "--sh"), ["--show-password"])
        self.assertEqual(self.complete("call", "--sh"), [])
        with tempfile.TemporaryDirectory() as folder:
            name = folder + "/a file"
            pathlib.Path(name).write_bytes(b"")
            for before in (["--bin-in"], ["--password-file", "="]):
                self.assertEqual(self.complete("call", *before, folder + "/a"), [name])

    def test_bench_clears_its_progress_line(self):
        answers = [[b"", b"", b"", b"", b"", b"", answer(sentcnt=i + 1)] for i in range(4)]
        master, terminal = pty.openpty()
        with Peer(packet(LOGIN, b"OK"), *answers) as address:
            done = subprocess.run(HYRPC + ["bench", "-n", "3", address, "add"], stderr=terminal,
                                  stdout=subprocess.PIPE, text=True, timeout=60)
        os.close(terminal)
        shown = read_to_end(master).decode()
        self.assertEqual(done.returncode, 0)
        self.assertIn("\nunanswered      0\n", done.stdout)
        # Calls that take longer than the period of the line do not end it.
        self.assertRegex(shown, r"\r2 of 3 calls, \d+ a second ")
        self.assertRegex(shown, r"\r +\r\Z")


if __name__ == "__main__":
    HYRPC = sys.argv[1:]
    unittest.main(argv=sys.argv[:1], verbosity=2)

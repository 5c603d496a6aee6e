#!/usr/bin/env python3
"""What the example device does about peers that mean it ill.

usage: device_guard_test.py [EMULATOR...] HYDEVICE
"""
import contextlib
import hashlib
import json
import os
import pathlib
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

from peer import DATA, LOGIN, receive_packet, send_packet

HYDEVICE = []
ACCOUNTS = {"admin": "0;root", "guest": "2;visitor"}
FAILED, NO_POWER, REFUSED = -32605, -32604, -2
SIDE = 4096
PATIENCE = 30  # seconds
# An address sanitizer keeps what is freed; little of it, where memory is measured.
ENVIRONMENT = {**os.environ,
               "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"}


def settings(accounts=None, **sections):
    sections = {"net": {"port": 0}, "accounts": accounts or ACCOUNTS, **sections}
    return "".join(f"[{name}]\n" + "".join(f"{key}={value}\n" for key, value in section.items())
                   for name, section in sections.items())


def memory_mib(pid):
    with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as lines:
        return next(int(line.split()[1]) for line in lines if line.startswith("VmHWM:")) / 1024


class Caller:
    """A connection from one of the loopback addresses, logged in or refused with a text.

    `place` is a port or the name of a local socket.
    """

    def __init__(self, place, host="127.0.0.1"):
        if place.isdigit():
            self.socket = socket.create_connection(("127.0.0.1", place), PATIENCE, (host, 0))
        else:
            self.socket = socket.socket(socket.AF_UNIX)
            self.socket.connect("\0" + place.ljust(107, "\0"))  # the name fills its field
        self.stream = self.socket.makefile("rwb")
        send_packet(self.stream, LOGIN, b"owner;908172")
        self.welcome = receive_packet(self.stream)[1].decode()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(OSError):
            self.stream.close()
        self.socket.close()

    def request(self, method, param=None, user=None, password="", **members):
        if user is not None:
            digest = hashlib.md5((user + method + password).encode()).hexdigest()
            members["user"] = {"name": user, "digest": digest}
        return json.dumps({"method": method, "param": param, **members}).encode()

    def answer(self):
        """The next answer; None when the device has hung up. Silence is no hanging up."""
        deadline = time.monotonic() + PATIENCE
        try:
            while time.monotonic() < deadline:
                payload = receive_packet(self.stream)[1].split(b"\0")[0]
                if payload and b'"method":"event"' not in payload:
                    # Of equal members the last one counts, and that is the device's own.
                    return json.loads(payload)
        except TimeoutError:
            pass
        except (OSError, struct.error):
            return None
        return {"error": {"errorcode": "silence"}}

    def call(self, *words, **members):
        try:
            send_packet(self.stream, DATA, self.request(*words, **members))
        except OSError:
            return None
        return self.answer()

    def code(self, *words, **members):
        answer = self.call(*words, **members)
        return answer and answer["error"]["errorcode"]

    def log_in(self, name, password):
        return self.call("account_login", {"name": name, "password": password})


class Case(unittest.TestCase):
    @contextlib.contextmanager
    def device(self, **sections):
        with tempfile.TemporaryDirectory() as folder:
            with open(f"{folder}/d.ini", "w", encoding="ascii") as ini:
                ini.write(settings(**sections))
            self.output = pathlib.Path(folder, "out")
            with self.output.open("w", encoding="latin1") as out, \
                    subprocess.Popen(HYDEVICE + [ini.name], stdout=out, stderr=out,
                                     env=ENVIRONMENT) as process:
                try:
                    self.pid, deadline = process.pid, time.monotonic() + 20
                    while not (at := re.search(r"^listening at .*:(.*)\n", self.printed(), re.M)):
                        self.assertIsNone(process.poll())
                        self.assertLess(time.monotonic(), deadline)
                        time.sleep(0.02)
                    self.place = at[1]
                    yield lambda *words: Caller(self.place, *words)
                finally:
                    process.terminate()
                    self.assertEqual(process.wait(30), 0)

    def printed(self):
        return self.output.read_text("latin1")

    def start_error(self, **sections):
        with tempfile.NamedTemporaryFile("w", suffix=".ini") as ini:
            ini.write(settings(**sections))
            ini.flush()
            # One that starts is ended by the time-out.
            return subprocess.run(HYDEVICE + [ini.name], capture_output=True, text=True, timeout=10,
                                  check=False).stderr

    def assert_blocked(self, answer):
        self.assertIsNotNone(answer)
        self.assertEqual(answer["error"]["errorcode"], REFUSED)
        self.assertRegex(answer["error"]["message"], r"^blocked for another \d+ s$")


class Settings(Case):
    def test_what_leaves_a_door_open_is_refused_in_one_line(self):
        many = {f"user{i}": "0;secret" for i in range(32)}
        for text, sections in (
            ("[accounts] user9: there are 31 accounts already", {"accounts": many}),
            ("[login] max_tokens: '1' is no number from 2 to 100000", {"login": {"max_tokens": 1}}),
        ):
            with self.subTest(text):
                self.assertRegex(self.start_error(**sections),
                                 rf"\Ahydevice: [^\n]+\.ini: {re.escape(text)}\n\Z")

    def test_31_accounts_leave_no_rights_to_unknown_names(self):
        with self.device(accounts={f"user{i}": "0;secret" for i in range(31)}) as connect, \
                connect() as caller:
            for user, password, code in (("nobody", "", NO_POWER), ("user30", "secret", 0),
                                         ("user30", "", FAILED), ("user30", "secret", 0)):
                self.assertEqual(caller.code("config_set", {}, user, password), code, user)


class Guessing(Case):
    LOGIN = {"max_failures": 3, "max_peer_failures": 8}

    def test_three_wrong_passwords_block_an_address_for_the_account_alone(self):
        ways = {
            "digests": lambda caller: caller.code("config_get", None, "admin", "guess"),
            "digests of a method without rights":
                lambda caller: caller.code("reset_counters", None, "guest", "guess"),
            "digests that bring an error": lambda caller: caller.code(
                "config_get", None, "admin", "guess", error={"errorcode": 0}),
            "passwords": lambda caller: caller.log_in("admin", "guess")["error"]["errorcode"],
        }
        for way, guess in ways.items():
            user, password = ("guest", "visitor") if "without" in way else ("admin", "root")
            other = "admin" if user == "guest" else "guest"
            with self.subTest(way), self.device(login=self.LOGIN) as connect:
                with connect() as caller:
                    wrong = REFUSED if way == "passwords" else FAILED
                    self.assertEqual([guess(caller) for _ in range(3)], [wrong] * 3)
                    self.assertIsNone(caller.answer(), "still connected")
                # Now the right one gets no more than a wrong one, and both are hung up on.
                for members in {}, {"sentcnt": 9}:
                    answers = []
                    for attempt in password, "wrong":
                        with connect() as caller:
                            answers.append(caller.call("add", {"a": 1, "b": 1}, user, attempt, **members))
                            self.assertIsNone(caller.answer())
                    self.assert_blocked(answers[0])
                    self.assertEqual(*(re.sub(r"another \d+|\w{32}", "", str(list(answer.items())))
                                       for answer in answers))
                with connect() as caller:
                    self.assert_blocked(caller.log_in(user, password))
                with connect() as caller:
                    self.assertEqual(caller.code("config_get", None, other, ACCOUNTS[other][2:]), 0)
                with connect("127.0.0.2") as caller:
                    self.assertEqual(caller.code("config_get", None, user, password), 0)
                    self.assertEqual(caller.log_in(user, password)["error"]["errorcode"], 0)

    def test_a_user_of_this_machine_is_a_peer_like_an_address(self):
        name = f"device-guard-{os.getpid()}"
        with self.device(net={"unix": name}, login={"max_peer_failures": 1}) as connect:
            with connect() as caller:
                self.assertEqual(caller.code("config_get", None, "admin", "guess"), FAILED)
            with connect() as late:
                self.assertRegex(late.welcome, r"^blocked for another \d+ s$")

    def test_a_block_ends(self):
        with self.device(login={"max_failures": 1, "lock_seconds": 1}) as connect:
            with connect() as caller:
                self.assertEqual(caller.code("config_get", None, "admin", "guess"), FAILED)
            time.sleep(1.2)
            with connect() as caller:
                self.assertEqual(caller.code("config_get", None, "admin", "root"), 0)

    def test_the_right_password_starts_the_count_again(self):
        with self.device(login={"max_failures": 2, "max_peer_failures": 5}) as connect, \
                connect() as caller:
            for password, code in (("guess", FAILED), ("root", 0)) * 4:
                self.assertEqual(caller.code("config_get", None, "admin", password), code)

    def test_no_trick_brings_more_than_three_guesses(self):
        tricks = {
            "in one go": (),
            "unknown methods between": (("no_such", None, "admin", "x"),),
            "unsigned calls between": (("add", {"a": 1, "b": 1}),),
            "right calls of others between": (("add", {"a": 1, "b": 1}, "guest", "visitor"),),
            "calls of others without rights between": (("reset_counters", None, "guest", "visitor"),),
        }
        for trick, between in tricks.items():
            with self.subTest(trick), self.device(login=self.LOGIN) as connect:
                failed = 0
                for _ in range(2):
                    with connect() as caller:
                        requests = [caller.request(*words) for _ in range(20)
                                    for words in (*between, ("config_get", None, "admin", "guess"))]
                        with contextlib.suppress(OSError):
                            for request in requests:
                                send_packet(caller.stream, DATA, request)
                        for answer in iter(caller.answer, None):
                            self.assertNotEqual(answer["error"]["errorcode"], "silence")
                            failed += answer["error"]["errorcode"] == FAILED and \
                                answer["method"] == "config_get"
                self.assertIn(failed, range(1, 4))

    def test_names_that_are_no_account_block_the_address(self):
        ways = {
            "digests": lambda caller, i: caller.code("add", None, f"n{i}", "guess"),
            "empty passwords": lambda caller, i: caller.code("add", None, f"n{i}", ""),
            "passwords": lambda caller, i: caller.log_in(f"n{i}", "guess"),
        }
        for way, guess in ways.items():
            with self.subTest(way), self.device(login=self.LOGIN) as connect, \
                    connect() as idle, connect() as caller:
                for i in range(8):
                    self.assertTrue(guess(caller, i))
                self.assertIsNone(guess(caller, 8))
                with connect() as late:
                    self.assertRegex(late.welcome, r"^blocked for another \d+ s$")
                self.assert_blocked(idle.call("config_get", None, "admin", "root"))
                self.assertIsNone(idle.answer())
                with connect("127.0.0.2") as another:
                    self.assertEqual(another.code("config_get", None, "admin", "root"), 0)

    def test_long_names_take_no_memory(self):
        with self.device(login={"max_peer_failures": 1000}) as connect, connect() as caller:
            caller.log_in("x" * 1000000, "guess")
            before = memory_mib(self.pid)
            for i in range(100):
                answer = caller.log_in(f"{i:3}" + "x" * 1000000, "guess")
                self.assertEqual(answer["error"]["message"], "a name has at most 31 characters")
            self.assertLess(memory_mib(self.pid), before + 20)

    def test_only_the_whole_password_is_right(self):
        with self.device(login={"max_failures": 100, "max_peer_failures": 100}) as connect, \
                connect() as caller:
            for password, right in (("root", True), ("", False), ("roo", False), ("root ", False),
                                    ("Root", False), ("root" + "\x01" * 300, False), ("x" * 300, False)):
                self.assertEqual("token" in caller.log_in("admin", password), right, password)

    def test_requests_that_are_no_calls_are_survived_without_a_word(self):
        with self.device() as connect, connect() as caller:
            for text in (b"[1]", b"5", b"no JSON", b"{}", b'{"method":"add","user":[1]}', b'{"user":{"name":"admin"}}'):
                send_packet(caller.stream, DATA, text)
                if text != b"no JSON":
                    self.assertNotIn("silence", str(caller.answer() or "silence"))
            self.assertEqual(caller.code("config_get", None, "admin", "root"), 0)
            self.assertRegex(self.printed(), r"\Alistening at [^\n]+\n\Z")


class Limits(Case):
    def assert_hung_up(self, caller, data):
        with contextlib.suppress(OSError):
            caller.stream.write(data)
            caller.stream.flush()
        self.assertIsNone(caller.answer())

    def test_more_clients_are_turned_away(self):
        for limit, text in (("max_clients", "too many clients"),
                            ("max_clients_per_address", "too many clients from this address")):
            with self.subTest(limit), self.device(limits={limit: 2}) as connect, \
                    connect(), connect(), connect() as third, connect("127.0.0.2") as other:
                self.assertEqual(third.welcome, text)
                self.assertEqual(other.welcome, text if limit == "max_clients" else "OK")

    def test_by_default_a_request_has_17_mib(self):
        with self.device() as connect, connect() as caller, connect() as greedy:
            request = caller.request("upload", None, "guest", "visitor") + bytes(1 + (16 << 20))
            send_packet(caller.stream, DATA, request)
            self.assertEqual(caller.answer()["size"], 16 << 20)
            self.assert_hung_up(greedy, struct.pack(">III", DATA, 0, (17 << 20) + 1))

    def test_logins_and_requests_that_do_not_come_to_an_end_are_cut_off(self):
        with self.device(limits={"login_sec": 1, "packet_sec": 1}) as connect, connect() as caller, \
                socket.create_connection(("127.0.0.1", self.place), PATIENCE) as silent:
            self.assertEqual(silent.recv(1), b"")
            self.assert_hung_up(caller, struct.pack(">III", DATA, 0, 1000) + b"{")

    def test_limits_are_checked(self):
        for key, value in (("max_clients", "many"), ("login_sec", -1), ("backlog", 65536)):
            self.assertRegex(self.start_error(limits={key: value}),
                             rf"\Ahydevice: [^\n]+ \[limits\] {key}: '{value}' is no number from 0 to ")


class Tokens(Case):
    def test_nobody_uses_up_the_tokens_of_another(self):
        with self.device(login={"max_tokens": 4}) as connect, connect() as caller:
            admin = caller.log_in("admin", "root")["token"]
            guest = [caller.log_in("guest", "visitor")["token"] for _ in range(10)]
            self.assertIn("token", caller.log_in("admin", "root"))
            caller.call("logout", {"token": guest[9]}, "guest", "visitor")
            guest.append(caller.log_in("guest", "visitor")["token"])
            for token, code in [(admin, 0), (guest[10], 0), (guest[9], REFUSED), (guest[8], 0)] + \
                    [(token, REFUSED) for token in guest[:8]]:
                self.assertEqual(caller.code("session_info", {"token": token}, "guest", "visitor"), code)


class Drawing(Case):
    @contextlib.contextmanager
    def fonts(self):
        """Fonts whose every glyph is a full box."""
        with tempfile.TemporaryDirectory() as folder:
            with open(f"{folder}/cn", "wb") as font:
                font.write(bytes(9) + b"\x10" + bytes(6) + b"\xff" * (94 * 94 * 32))
            with open(f"{folder}/en", "wb") as font:
                font.write(b"\xff" * (96 * 16))
            yield {"font_cn": f"{folder}/cn", "font_en": f"{folder}/en"}

    def test_what_would_take_minutes_is_refused(self):
        def text(**members):
            return {"op": "text", "text": "A", "x": 0, "y": 0, "size": 20, **members}

        diagonal = [[0, 0], [SIDE - 1, SIDE - 2]]
        line = {"op": "line", "from": diagonal[0], "to": diagonal[1]}
        icon = {"op": "icon", "icon": "wifi", "value": 1, "x": 0, "y": 0, "size": 512}
        rect = {"op": "rect", "x": 0, "y": 0, "w": SIDE, "h": SIDE}
        full = [text(text="A" * 16, y=y, size=512) for y in range(0, SIDE, 512)]
        with self.fonts() as osd, self.device(osd=osd) as connect, connect() as caller:
            for name, side, commands, message in (
                ("texts", SIDE, full * 4, "command 31: "),
                ("outlines", SIDE, [text(border="#FF000000")] * 4, "command 4: "),
                ("outlines of much", SIDE, full + [text(border="#FF000000")], "command 9: "),
                ("thin outlines", SIDE, [text(size=16, border="#FF000000")], "command 1: "),
                ("small texts", SIDE, [text(text="A" * 1023, size=1)] * 15000, "at most 10000"),
                ("long texts", 10, [text(text="A" * 100000)] * 170, "command 160: "),
                ("lines", SIDE, [line] * 800, "command 782: "),
                ("region", SIDE, [{"op": "region", "points": diagonal * 1000}], "command 1: "),
                ("rects", SIDE, [rect] * 400, "command 391: "),
                ("icons", 600, [icon] * 250, "command 245: "),
                ("numbers", 600, [{**icon, "icon": "number", "border": "#FF000000"}] * 200, "command "),
                ("no more than allowed", SIDE, full * 3 + [line] * 100, None),
            ):
                answer = caller.call("osd_draw", {"width": side, "height": side, "commands": commands},
                                     "guest", "visitor")
                with self.subTest(name):
                    self.assertIsNotNone(answer)
                    error = answer["error"]
                    if message is None:
                        self.assertEqual(error, {"errorcode": 0})
                    else:
                        self.assertIn(message, error.get("message", ""))
                        if message != "at most 10000":
                            self.assertIn("more than 64000000 pixels", error["message"])


if __name__ == "__main__":
    HYDEVICE = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])

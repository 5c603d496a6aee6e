#!/usr/bin/env python3
"""The Wireshark dissector, tried with tshark on a real exchange and on hand-made captures.

usage: wireshark_test.py TSHARK HYBASE.LUA HYDEVICE HYRPC FOLDER

The captures stay in FOLDER, to be looked at. The real exchange is captured on the loopback interface
where that is permitted; elsewhere a relay between both ends writes down what it forwards.
"""
import json
import os
import random
import re
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest

TSHARK, SCRIPT, HYDEVICE, HYRPC, FOLDER = sys.argv[1:6] if len(sys.argv) == 6 else [""] * 5
DATA, LOGIN = 0xA55A5AA5, 0xA55A5AA6
SECRETS = ["908172", "open sesame", "guess", "guest-secret"]
FINDINGS = ["bad_flag", "bad_length", "long", "cut", "login.odd", "login.late", "not_json", "odd_call"]
SERVICE, CLIENT = 8600, 40000  # ports in hand-made captures


def packet(flag, payload=b"", length=None, kind=0):
    return struct.pack(">III", flag, kind, len(payload) if length is None else length & 0xFFFFFFFF) + payload


def request(sentcnt, method="add", tail=b"", **members):
    message = dict({"method": method, "param": {"a": 1}, "sentcnt": sentcnt}, **members)
    return packet(DATA, json.dumps(message).encode() + tail)


def response(sentcnt, method="add", tail=b"", errorcode=0):
    error = {"errorcode": errorcode} if errorcode == 0 else {"errorcode": errorcode, "message": "no"}
    return packet(DATA, json.dumps({"method": method, "sentcnt": sentcnt, "error": error}).encode() + tail)


HELLO, WELCOME, KEEP_ALIVE = packet(LOGIN, b"owner;908172"), packet(LOGIN, b"OK"), packet(DATA)
EVENT = packet(DATA, b'{"n":1,"method":"alarm"}\0')


class Capture:
    """A pcap file of TCP segments, each connection with its handshake; one millisecond a segment."""

    def __init__(self, name):
        self.path, self.at, self.sequences = os.path.join(FOLDER, name), 0, {}
        self.file = open(self.path, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 101))

    def frame(self, stream, port, from_client, flags, data, at):
        ports = (CLIENT + stream, port) if from_client else (port, CLIENT + stream)
        own, other = self.sequences[stream][from_client], self.sequences[stream][not from_client]
        self.sequences[stream][from_client] += len(data) + (1 if flags & 2 else 0)
        loopback = socket.inet_aton("127.0.0.1")
        tcp = struct.pack(">HHIIBBHHH", *ports, own, other, 5 << 4, flags, 65535, 0, 0)
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(data), 0, 0, 64, 6, 0, loopback, loopback)
        self.at = at if at is not None else self.at + 0.001
        self.file.write(struct.pack("<IIII", int(self.at), round(self.at % 1 * 1e6), 40 + len(data), 40 + len(data)))
        self.file.write(ip + tcp + data)

    def send(self, stream, from_client, *pieces, port=SERVICE, at=None):
        if stream not in self.sequences:
            self.sequences[stream] = {True: 1000, False: 5000}
            for side, flags in ((True, 0x02), (False, 0x12), (True, 0x10)):
                self.frame(stream, port, side, flags, b"", at)
        for piece in pieces:
            for start in range(0, len(piece), 60000):
                self.frame(stream, port, from_client, 0x18, piece[start:start + 60000], at)

    def close(self):
        self.file.close()
        return self.path


def tshark(path, *words):
    # A folder of its own keeps the user's settings out, and a copy of the dissector installed there.
    done = subprocess.run([TSHARK, "-n", "-X", "lua_script:" + SCRIPT, "-o", "hybase.largest:5", "-r", path, *words],
                          timeout=100, capture_output=True,
                          env=dict(os.environ, HOME=FOLDER, XDG_CONFIG_HOME=FOLDER))
    out, err = done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")
    assert done.returncode == 0 and "Lua" not in err, (done.returncode, err)
    for trouble in ("Lua Error", "Dissector bug", "Malformed Packet: HYBASE"):
        assert trouble not in out, out[max(0, out.find(trouble) - 2000):][:4000]
    return out


def rows(path, condition, *fields):
    columns = [word for field in fields for word in ("-e", field)]
    out = tshark(path, "-2", "-Y", condition, "-T", "fields", *columns)
    return [tuple(line.split("\t")) for line in out.splitlines()]


def kinds(path, condition="hybase"):
    """Of each TCP stream the kinds of its packets, in order."""
    found = {}
    for stream, names in rows(path, condition, "tcp.stream", "hybase.kind"):
        found.setdefault(int(stream), []).extend(names.split(",") if names else [])
    return found


def infos(path, condition="hybase"):
    return [line[0] for line in rows(path, condition, "_ws.col.Info")]


# ---- A real exchange ----

class Relay:
    """Forwards connections to a port of this machine and writes down what passes."""

    def __init__(self, target, name, capture, lock):
        self.target, self.name, self.capture, self.lock = target, name, capture, lock
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            client, address = self.listener.accept()
            server = socket.create_connection(("127.0.0.1", self.target))
            for source, sink, from_client in ((client, server, True), (server, client, False)):
                threading.Thread(target=self.forward, daemon=True,
                                 args=(source, sink, from_client, address[1] - CLIENT)).start()

    def forward(self, source, sink, from_client, stream):
        try:
            while data := source.recv(65536):
                with self.lock:
                    self.capture.send(stream, from_client, data, port=self.target, at=time.time())
                sink.sendall(data)
            sink.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # one end has gone


class Refuser:
    """A service that lets nobody in."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        connection, _ = self.listener.accept()
        connection.recv(4096)
        connection.sendall(packet(LOGIN, b"unknown user"))
        connection.close()
        self.listener.close()


def live_capture(path, ports):
    """dumpcap at work on the loopback interface, or None where it may not."""
    condition = " or ".join(f"tcp port {port}" for port in ports)
    dumpcap = os.path.join(os.path.dirname(TSHARK), "dumpcap")
    try:
        process = subprocess.Popen([dumpcap, "-q", "-P", "-i", "lo", "-f", condition, "-w", path],
                                   stderr=subprocess.PIPE, text=True)
    except OSError:
        return None
    for line in process.stderr:
        if line.startswith("File: "):
            return process
    process.wait(10)
    return None


def wait_until_captured(path, text):
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline:
        with open(path, "rb") as file:
            if text in file.read():
                return
        time.sleep(0.1)


def talk(device, refuser):
    """What the capture is to show: calls of hyrpc, and a peer of our own for what hyrpc does not do."""
    def hyrpc(status, *words, port=device):
        words = [word.replace("ADDRESS", f"127.0.0.1:{port}") for word in words]
        done = subprocess.run([HYRPC, *words], capture_output=True, timeout=60)
        assert done.returncode == status, (words, done)

    signed = ["-u", "guest", "-p", "guest-secret", "ADDRESS"]
    upload = os.path.join(FOLDER, "upload.bin")
    with open(upload, "wb") as file:
        file.write(b"\0\1\2hello")
    hyrpc(0, *signed, "add", '{"a": 40, "b": 2}')
    hyrpc(1, *signed, "make_coffee")
    hyrpc(0, "--bin-in", upload, *signed, "upload")
    hyrpc(0, *signed, "download", '{"size": 70000}')
    hyrpc(0, "ADDRESS", "account_login", '{"name": "guest", "password": "guest-secret"}')
    hyrpc(0, "watch", "-n", "1", "ADDRESS")
    hyrpc(2, "-l", "eve;guess", "-t", "5", "ADDRESS", "add", port=refuser)
    with socket.create_connection(("127.0.0.1", device), timeout=10) as peer:
        stream = peer.makefile("rb")
        peer.sendall(packet(LOGIN, b"bob;open sesame"))
        assert stream.read(14) == WELCOME
        peer.sendall(KEEP_ALIVE + request(1) + request(2) + request(3))
        answered = 0
        while answered < 3:
            length = struct.unpack(">III", stream.read(12))[2]
            answered += b'"sentcnt"' in stream.read(length)


def record_exchange(path):
    """Captures talk(); tells by which means."""
    with subprocess.Popen([HYDEVICE, "--port", "0"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True) as device:
        try:
            line = next(line for line in device.stdout if line.startswith("listening at "))
            threading.Thread(target=device.stdout.read, daemon=True).start()
            ports = [int(line.split(":")[1]), Refuser().port]
            capturing = None if os.environ.get("HYBASE_RELAY") else live_capture(path, ports)
            if capturing:
                talk(*ports)
                wait_until_captured(path, b'"sentcnt":3')  # of the last response
                capturing.terminate()
                capturing.communicate(timeout=30)
                return "captured on the loopback interface"
            capture, lock = Capture(os.path.basename(path)), threading.Lock()
            talk(*(Relay(port, path, capture, lock).port for port in ports))
            with lock:
                capture.close()
            return "written down by a relay between both ends"
        finally:
            device.terminate()
            device.wait(30)


class RealExchange(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.path = os.path.join(FOLDER, "exchange.pcap")
        print("the exchange was", record_exchange(cls.path), file=sys.stderr)

    def test_each_kind_of_packet_is_told_in_one_line(self):
        lines = infos(self.path)
        for expected in (r"^Login request, user owner$", r"^Login reply: OK$", r"^Request add #1$",
                         r"^Response add #1, \d+\.\d+ ms$", r"^Response make_coffee #1, \d+\.\d+ ms, error -32601$",
                         r"^Notification event", r"^Login request, user bob$", r"^Login request, user eve$",
                         r"^Login reply: refused, unknown user$",
                         r"^Keep-alive, Request add #1, Request add #2, Request add #3$"):
            self.assertTrue(any(re.search(expected, line) for line in lines), (expected, lines))

    def test_every_response_has_its_request(self):
        found = rows(self.path, "hybase.request_in", "tcp.stream", "frame.number", "hybase.request_in",
                     "hybase.response_time", "hybase.sentcnt", "hybase.method")
        self.assertEqual(sum(len(row[4].split(",")) for row in found), 8)
        requests = {row[0]: row[1:] for row in rows(self.path, "hybase.response_in", "frame.number", "tcp.stream",
                                                    "hybase.response_in", "hybase.method")}
        for stream, frame, asked, seconds, _, method in found:
            self.assertTrue(all(0 <= float(each) < 5 for each in seconds.split(",")))
            for number, name in zip(asked.split(","), method.split(",")):
                self.assertEqual(requests[number][0], stream)
                self.assertIn((frame, name), list(zip(*(each.split(",") for each in requests[number][1:]))))

    def test_binary_data_stands_apart(self):
        self.assertEqual(rows(self.path, 'hybase.method == "upload" && hybase.kind == "request"',
                              "hybase.binary", "hybase.binary.length"), [("00010268656c6c6f", "8")])
        data = rows(self.path, "hybase.binary.length > 8", "hybase.binary", "hybase.length", "hybase.text")
        self.assertEqual(data[0][0], bytes(i & 255 for i in range(70000)).hex())
        self.assertEqual(int(data[0][1]), len(data[0][2]) + 1 + 70000)

    def test_json_is_shown_by_member(self):
        tree = json.loads(tshark(self.path, "-T", "json", "-Y", 'hybase.errorcode == -32601'))
        self.assertIn("json", tree[0]["_source"]["layers"]["hybase"])

    def test_no_password_is_in_the_tree(self):
        for words in (["-V", "-O", "hybase,json"], ["-T", "fields", "-e", "hybase.text", "-e", "json.value.string"],
                      ["-T", "json", "-J", "hybase json"], ["-T", "pdml", "-j", "hybase json"]):
            text = tshark(self.path, *words)
            self.assertIn("hidden, " if "json.value.string" not in words else "guest", text)
            for secret in SECRETS:
                self.assertNotIn(secret, text, words)
        self.assertEqual(rows(self.path, 'hybase.method == "account_login" && hybase.response_in', "hybase.text"), [(
            '{"method":"account_login","param":{"name":"guest","password":"(hidden, 12 bytes)"},"sentcnt":1}',)])


# ---- Hand-made captures ----

class HandMade(unittest.TestCase):
    def test_packets_cut_anywhere_are_put_together(self):
        capture = Capture("split.pcap")
        asked, answered = HELLO + request(7) + KEEP_ALIVE, WELCOME + response(7, tail=b"\0bin") + EVENT
        streams = len(asked) - 1
        for cut in range(1, streams + 1):
            capture.send(cut, True, asked[:cut], asked[cut:])
            capture.send(cut, False, answered[:cut], answered[cut:])
        for number, (flow, from_client) in enumerate(((asked, True), (answered, False))):
            capture.send(0, from_client, *(flow[at:at + 1] for at in range(len(flow))))
        path = capture.close()
        expected = ["login request", "request", "keep-alive", "login reply", "response", "notification"]
        found = kinds(path)
        self.assertEqual(len(found), streams + 1)
        for stream, names in found.items():
            self.assertEqual(names, expected, stream)
        with_tail = rows(path, "hybase.response_time && hybase.binary == 62:69:6e", "frame.number")
        self.assertEqual(len(with_tail), streams + 1)
        marked = " || ".join("hybase." + finding for finding in FINDINGS + ["unmatched"])
        self.assertEqual(infos(path, marked), [])
        for stream in (5, 12):  # cut in a header and behind it: TCP hands the rest over in one part or in two
            self.assertEqual(infos(path, f"hybase && tcp.stream == {stream}"),
                             ["Login request, user owner, Request add #7, Keep-alive",
                              "Login reply: OK, Response add #7, 2.0 ms, Notification alarm"])

    def test_faults_are_marked_and_do_not_stall_the_stream(self):
        huge = packet(DATA, b"x" * 3000, length=0x7FFFFFFF)
        deep, too_deep = (b'{"method":"deep","param":' + b"[" * levels + b"]" * levels + b"}" for levels in (999, 1000))
        cases = [  # name, what the client sends after its login, findings, kinds
            ("flag", b"\xa5\x5a\x5a\xa7" + b"\0" * 40, ["bad_flag"], []),
            ("other protocol", b"GET / HTTP/1.1\r\n\r\n", ["bad_flag"], []),
            ("negative length", packet(DATA, b"{}", length=-1), ["bad_length"], []),
            ("huge length", huge, ["long", "cut"], ["data"]),
            ("any type", packet(DATA, b"abc", kind=0xFFFFFFFF), [], ["data"]),
            ("login late", packet(LOGIN, b"bob;password"), ["login.late"], ["login request"]),
            ("empty login", packet(LOGIN), ["login.odd"], ["login"]),
            ("no JSON", packet(DATA, b'{"method":"add","param":{]}'), ["not_json"], ["no JSON"]),
            ("no text", packet(DATA, b"\0"), ["not_json"], ["no JSON"]),
            ("long", packet(DATA, b'{"method":"m","sentcnt":4,"param":"' + b"x" * 4200000), ["long"], ["request"]),
            ("many digits", packet(DATA, b'{"method":"m","sentcnt":5,"param":' + b"1" * 1000000 + b"}"), ["long"],
             ["request"]),
            ("never closed", packet(DATA, b"[" * 200000), ["not_json"], ["no JSON"]),
            ("deep", packet(DATA, deep), ["long"], ["request"]),
            ("too deep", packet(DATA, too_deep), ["not_json"], ["no JSON"]),
            ("no method", packet(DATA, b'{"sentcnt":1}'), ["odd_call"], ["request"]),
            ("two values", packet(DATA, b'{"method":"a"} {"password":"guess"}'), ["odd_call"], ["request"]),
            ("case", packet(DATA, b'{"METHOD":"first","method":"second","\\u0070assword":["guess"]}'), [], ["request"]),
            ("broken secret", packet(DATA, b'{"method":"a","password":"guess'), ["not_json"], ["no JSON"]),
        ]
        capture = Capture("faults.pcap")
        for stream, (_, fault, _, _) in enumerate(cases):
            capture.send(stream, True, HELLO)
            capture.send(stream, False, WELCOME)
            capture.send(stream, True, fault, request(5))
            capture.send(stream, False, response(5, errorcode=-9))
        path = capture.close()
        found = kinds(path)
        for stream, (name, _, findings, names) in enumerate(cases):
            expected = ["login request", "login reply", *names, "request", "response"]
            self.assertEqual(found[stream], expected, name)
        marked = {stream: set() for stream in found}
        for stream, *columns in rows(path, "hybase", "tcp.stream", *("hybase." + finding for finding in FINDINGS)):
            marked[int(stream)] |= {finding for finding, column in zip(FINDINGS, columns) if column}
        for stream, (name, _, findings, _) in enumerate(cases):
            self.assertEqual(marked[stream], set(findings), name)
        self.assertEqual(len(rows(path, "hybase.errorcode == -9 && hybase.request_in", "frame.number")), len(cases))
        self.assertNotIn("guess", tshark(path, "-V", "-O", "hybase,json"))
        self.assertEqual(len(rows(path, 'hybase.method == "first"', "frame.number")), 1)
        self.assertEqual(rows(path, 'hybase.method == "second"', "frame.number"), [])

    def test_records_without_a_user_are_hidden_whole(self):
        capture = Capture("logins.pcap")
        for stream, record in enumerate((b"justapassword", b";guessguess", b"FAILED guess", b"\xff\xfe;guessguess")):
            capture.send(stream, True, packet(LOGIN, record))
            capture.send(stream, False, packet(LOGIN, b"no"))
        capture.send(9, False, packet(LOGIN, b"very late guess"))
        capture.send(10, True, packet(LOGIN, b"me;" + bytes(1022)))
        capture.send(11, True, packet(LOGIN, b"me;guess"))
        capture.send(11, False, packet(LOGIN, b"no, not you"))
        path = capture.close()
        self.assertEqual([line for line in infos(path) if "reply" not in line],
                         ["Login request, record hidden", "Login request, user ", "Login request, record hidden",
                          "Login request, user ??", "Login request, record hidden",
                          "Login request, user me", "Login request, user me"])
        self.assertEqual(infos(path, "hybase.login.odd"), ["Login request, user me", "Login request, user me",
                                                           "Login reply: refused, no, not you"])
        text = tshark(path, "-V", "-O", "hybase")
        self.assertNotIn("guess", text)
        self.assertNotIn("justapassword", text)

    def test_calls_are_matched_per_connection_direction_and_method(self):
        capture = Capture("matching.pcap")
        capture.send(0, True, HELLO)
        capture.send(1, True, HELLO)
        capture.send(0, True, request(1), request(2), request(1, "sub"))
        capture.send(1, True, request(1))
        capture.send(0, False, WELCOME, response(2), response(1, "sub"), EVENT, response(1), response(1),
                     packet(DATA, b'{"method":"x","sentcnt":3,"error":{"errorcode":-1,"errcode":7}}'))
        path = capture.close()
        self.assertEqual(rows(path, "hybase.kind == response", "hybase.sentcnt", "hybase.request_in"),
                         [("2", "10"), ("1", "11"), ("1", "9"), ("1", ""), ("3", "")])
        self.assertEqual(infos(path, "hybase.unmatched"),
                         ["Request add #1", "Response add #1", "Response x #3, error 7"])

    def test_other_ports_are_known_by_the_flag_or_set(self):
        capture = Capture("ports.pcap")
        capture.send(0, True, HELLO, request(1), port=9999)
        capture.send(0, False, WELCOME + response(1), port=9999)
        capture.send(1, True, b"GET / HTTP/1.1\r\n\r\n", port=9998)
        capture.send(2, False, response(1), EVENT, port=9999)
        path = capture.close()
        self.assertEqual(kinds(path), {0: ["login request", "request", "login reply", "response"],
                                       2: ["response", "notification"]})
        self.assertEqual(len(tshark(path, "-o", "hybase.ports:9990-9998", "-Y", "hybase.bad_flag").splitlines()), 1)

    def test_capture_that_begins_late_or_cuts_frames(self):
        capture = Capture("late.pcap")
        capture.send(0, False, b"middle of a packet" + response(3))
        capture.send(1, True, packet(DATA, b"x" * 6000000))
        capture.send(1, True, request(4))
        capture.send(2, False, EVENT + b"tail", request(5))
        path = capture.close()
        self.assertEqual(kinds(path), {0: ["response"], 1: ["data", "request"], 2: ["notification", "notification"]})
        said = [row[0] for row in rows(path, "hybase.bad_flag", "_ws.expert.message")]
        self.assertIn("unless the capture began", said[0])
        self.assertEqual(said[1], "Bad flag: the receiver ends the connection here")
        cut = os.path.join(FOLDER, "cut.pcap")
        subprocess.run([os.path.join(os.path.dirname(TSHARK), "editcap"), "-s", "100", path, cut], check=True)
        self.assertEqual(rows(cut, "hybase.cut", "tcp.stream", "hybase.kind"),
                         [("0", "response"), ("1", "data"), ("1", "request"), ("2", "notification")])

    def test_damaged_streams_make_no_lua_error(self):
        chance = random.Random(8600)
        capture = Capture("damaged.pcap")
        flows = ((True, HELLO + request(1, user={"name": "bob"}) + KEEP_ALIVE + request(2, tail=b"\0\1\2")),
                 (False, WELCOME + response(1) + EVENT + response(2, errorcode=-3, tail=b"\0tail")))
        for stream in range(300):
            for from_client, flow in flows:
                data = bytearray(flow)
                for _ in range(chance.randrange(6)):
                    at = chance.randrange(len(data))
                    data[at:at + chance.choice((0, 1, 1, 9))] = chance.choice(
                        (b"", b"\0", b"\xff", b'"', b"{", b"\\u", b"\xa5\x5a\x5a\xa5", bytes([chance.randrange(256)])))
                cut, lost = chance.randrange(1, len(data)), chance.choice((0, 0, 0, 1, 20))
                capture.send(stream, from_client, bytes(data[:cut]))
                capture.sequences[stream][from_client] += lost
                capture.send(stream, from_client, bytes(data[cut + lost:]) or b"\0")
        path = capture.close()
        for words in (["-V"], ["-2", "-V"], ["-o", "tcp.desegment_tcp_streams:FALSE", "-V"]):
            self.assertGreater(tshark(path, *words).count("Hybase, "), 1200)


if __name__ == "__main__":
    os.makedirs(FOLDER, exist_ok=True)
    unittest.main(argv=sys.argv[:1], verbosity=2, warnings="ignore")

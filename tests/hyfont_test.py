"""hyfont as people run it: small fonts made here go through both kinds of font files."""
import os
import struct
import subprocess
import sys
import tempfile

BDF = """STARTFONT 2.1
FONT -test-test-medium-r-normal--16-160-75-75-c-160-ISO10646-1
SIZE 16 75 75
FONTBOUNDINGBOX 16 16 0 -2
CHARS %d
%sENDFONT
"""
GLYPH = "STARTCHAR c\nENCODING %d\nSWIDTH 500 0\nDWIDTH %d 0\nBBX %d %d %d %d\nBITMAP\n%s\nENDCHAR\n"


def run(status, text, *args):
    """Runs hyfont, which must end with the status and print the text; returns its lines."""
    done = subprocess.run([*sys.argv[1:], *args], capture_output=True, text=True)
    said = done.stdout + done.stderr
    assert done.returncode == status and text in said, (args, done)
    return said.splitlines()


def bdf(path, *glyphs):
    with open(path, "w") as out:
        out.write(BDF % (len(glyphs), "".join(GLYPH % glyph for glyph in glyphs)))
    return path


def outline(name, width, at):
    """A TrueType face for the offset `at` of a file: a multiplication sign that is a block as high as
    its line, from an eighth below the baseline, in a line that claims to be half as high again."""
    text = name.encode("utf-16-be")
    glyph = struct.pack(">5h2H4B8h", 1, 0, -128, width, 896, 3, 0, 1, 1, 1, 1,
                        0, 0, width, 0, -128, 1024, 0, -1024)
    tables = {
        b"cmap": struct.pack(">4HL6H", 0, 1, 3, 1, 12, 6, 12, 0, 0xD7, 1, 1),
        b"glyf": glyph,
        b"head": struct.pack(">4L2H2Q4h2H3h", 0x10000, 0, 0, 0x5F0F3CF5, 0, 1024, 0, 0, 0, -128, 1024, 896,
                             0, 8, 2, 1, 0),
        b"hhea": struct.pack(">L3hH12h", 0x10000, 1188, -295, 0, 1024, 0, 0, 0, 1, *[0] * 7, 1),
        b"hmtx": struct.pack(">H2h", 1024, 0, 0),
        b"loca": struct.pack(">3L", 0, 0, len(glyph)),
        b"maxp": struct.pack(">L14H", 0x10000, 2, *[0] * 13),
        b"name": struct.pack(">9H", 0, 1, 18, 3, 1, 0x409, 1, len(text), 0) + text,
    }
    head, body = struct.pack(">L4H", 0x10000, len(tables), 128, 3, 0), b""
    for tag, data in tables.items():
        head += tag + struct.pack(">3L", 0, at + 12 + 16 * len(tables) + len(body), len(data))
        body += data + bytes(-len(data) % 4)
    return head + body


def check_files():
    font = bdf("f.bdf", (65, 8, 8, 2, 1, 3, "81\n42"),  # one column over the right edge
               (0x4F60, 16, 16, 16, 0, -2, "\n".join(["8001"] * 15 + ["FFFF"])))
    run(0, "en: 1536 bytes, 16 pixels, 95 characters, 94 missing, 1 cut, from a nameless font\n",
        "en", "--force", font, "en")
    run(0, " 7445 characters, 7444 missing, 0 cut", "--force", "cn", font, "--size=16", "CN")
    rows = run(0, "", "show", "en", "你A")
    assert rows == ["." * 8] * 9 + [".#......", "..#....#"] + ["." * 8] * 5, rows
    assert run(0, "", "show", "CN", "A\u4f60") == ["#" + "." * 14 + "#"] * 15 + ["#" * 16]
    content = open("CN", "rb").read()
    assert content[9] == 16 and content[16 + (35 * 94 + 66) * 32:][:32] == b"\x80\x01" * 15 + b"\xff\xff"
    run(0, "........", "show", "en", "-A")
    for status, text, *args in [
            (1, "no font file", "show", font, "A"),
            (1, "cannot open the font en", "cn", "en", "out"),
            (1, "no size of 24 pixels, only 16\n", "cn", font, "out", "--size=24"),
            (1, "f.bdf has no face 1, only 0 a nameless font\n", "cn", "--face=1", font, "out"),
            (3, "--size takes", "cn", "--size", "20", font, "out"),
            (3, "--face takes", "cn", "--face", "-1", font, "out"),
            (3, "unknown option", "cn", "--bold", font, "out"),
            (3, "show takes no options", "show", "en", "A", "--force"),
            (3, "check takes CN EN", "check", "CN")]:
        run(status, text, *args)


def check_collection():
    """Two faces whose lines, centred, would lose two rows each of which the block needs."""
    faces = []
    for name, width in ("Test JP", 512), ("Test SC", 1024):
        faces.append(outline(name, width, 20 + sum(map(len, faces))))
    with open("ttc", "wb") as file:
        file.write(struct.pack(">4s4L", b"ttcf", 0x10000, 2, 20, 20 + len(faces[0])) + b"".join(faces))
    for args, name, width in [((), "Test SC", 16), (("--face", "0"), "Test JP", 8), (("--face=1",), "Test SC", 16)]:
        run(0, " 7444 missing, 0 cut, from " + name, "cn", "--force", *args, "ttc", "out")
        assert run(0, "", "show", "out", "\u00d7") == ["#" * width + "." * (16 - width)] * 16, args
    run(1, "no face 2, only 0 Test JP, 1 Test SC", "cn", "--face", "2", "ttc", "out")
    run(1, "none of the characters", "en", "ttc", "out")
    run(0, "95 missing, 0 cut, from Test JP", "en", "--force", "ttc", "out")


def check_share():
    """What a font lacks: silent up to 2 %, a warning up to 20 %, then a failure that writes nothing."""
    for there, status, text, *options in [
            (94, 0, ""),
            (93, 0, "warning: 2 of 95 characters (2.1 %)"),
            (76, 0, "warning: 19 of 95 characters (20.0 %)"),
            (75, 1, "hyfont: 20 of 95 characters (21.1 %)"),
            (75, 0, "warning: 20 of 95 characters (21.1 %)", "--force")]:
        font = bdf("f.bdf", *((code, 8, 8, 1, 0, 0, "FF") for code in range(32, 32 + there)))
        out = "%d%s" % (there, "".join(options))
        said = run(status, text, "en", *options, font, out)
        assert len(said) == (2 if status == 0 and text else 1) and os.path.exists(out) == (status == 0), said


def check_pairs():
    def cn(size, length=None):
        return bytes(9) + bytes([size]) + bytes((16 + 94 * 94 * size * size // 8 if length is None else length) - 10)

    def en(size):
        return bytes(96 * size * size // 16)

    for wide, narrow, reason in [
            (cn(16), en(16), None),
            (cn(24), en(24), None),
            (cn(16), en(24), "CN has 16 pixels, EN has 24"),
            (en(16), cn(16), "CN is a single-byte font"),
            (cn(16)[:12], en(16), "shorter than the header"),
            (cn(20), en(16), "the size, is 20 and"),
            (cn(8), en(16), "the size, is 8 and"),
            (cn(16)[:-32], en(16), "CN has 282736 bytes, a two-byte font of 16 pixels has 282768"),
            (cn(16), bytes(4096), "EN has 4096 bytes, a single-byte font of 16 pixels has 1536"),
            (cn(16), b"", "EN has 0 bytes")]:
        for name, content in ("CN", wide), ("EN", narrow):
            with open(name, "wb") as file:
                file.write(content)
        said = run(0 if reason is None else 1, "pair of" if reason is None else "hyfont: ", "check", "CN", "EN")
        assert len(said) == 1 and (reason or "") in said[0], said
        if "the size, is" in said[0]:
            run(1, "no font file", "show", "CN", "你")
    run(1, "cannot read none", "check", "none", "EN")


with tempfile.TemporaryDirectory() as temporary:
    os.chdir(temporary)
    for check in check_files, check_collection, check_share, check_pairs:
        check()

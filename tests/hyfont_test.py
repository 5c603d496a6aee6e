"""hyfont as people run it: a BDF font of two characters goes through both kinds of font files."""
import subprocess
import sys
import tempfile

FONT = """STARTFONT 2.1
FONT -test-test-medium-r-normal--16-160-75-75-c-160-ISO10646-1
SIZE 16 75 75
FONTBOUNDINGBOX 16 16 0 -2
CHARS 2
"""
GLYPH = "STARTCHAR c\nENCODING %d\nSWIDTH 500 0\nDWIDTH %d 0\nBBX %d %d %d %d\nBITMAP\n%s\nENDCHAR\n"


def run(status, *args):
    done = subprocess.run([*sys.argv[1:], *args], capture_output=True, text=True)
    assert done.returncode == status, (args, done)
    return done.stdout


with tempfile.TemporaryDirectory() as folder:
    font, cn, en = folder + "/f.bdf", folder + "/cn", folder + "/en"
    with open(font, "w") as out:
        out.write(FONT + GLYPH % (65, 8, 8, 2, 1, 3, "81\n42"))  # one column over the right edge
        out.write(GLYPH % (0x4F60, 16, 16, 16, 0, -2, "\n".join(["8001"] * 15 + ["FFFF"])) + "ENDFONT\n")
    assert run(0, "en", font, en) == en + ": 1536 bytes, 16 pixels, 95 characters, 94 missing, 1 cut\n"
    assert run(0, "cn", "--size", "16", font, cn).endswith(" 7445 characters, 7444 missing, 0 cut\n")
    rows = run(0, "show", en, "你A").splitlines()
    assert rows == ["." * 8] * 9 + [".#......", "..#....#"] + ["." * 8] * 5, rows
    assert run(0, "show", cn, "A\u4f60").splitlines() == ["#" + "." * 14 + "#"] * 15 + ["#" * 16]
    content = open(cn, "rb").read()
    assert content[9] == 16 and content[16 + (35 * 94 + 66) * 32:][:32] == b"\x80\x01" * 15 + b"\xff\xff"
    run(1, "show", font, "A")
    run(3, "cn", "--size", "20", font, cn)

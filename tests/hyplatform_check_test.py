"""hyplatform-check passes sound platform libraries and names the fault of each wrong one.

usage: hyplatform_check_test.py TOOL HEADERS BAD_LIBRARIES SOUND_LIBRARY... [-- EMULATOR...]
"""
import json
import pathlib
import re
import subprocess
import sys
import unittest

# Library, the function that must be named, what the reason must say.
FAULTS = [
    ("locks_nobody_out", "arch_mutex_lock", "two threads were inside at once"),
    ("keeps_locked", "arch_mutex_unlock", "no end within 3 s while checking one unlock with 16"),
    ("clock_goes_back", "arch_getSystemStartupMs", "it went back by 5 ms"),
    ("random_is_forked", "arch_rand_bytes", "twice in processes that were forked"),
    ("loses_exit_value", "arch_thread_join", "the exit value 0x"),
    ("reads_name_to_its_end", "arch_thread_setname",
     "crashed with signal 11 while checking a name of 32 bytes without a terminator"),
    ("leaves_stacks", "arch_thread_create_detached",
     "KiB of address space are not given back after thousands|no more were given"),
    ("starts_nothing", "arch_thread_create", "a null entry gave a thread"),
    ("is_not_complete", "utltlv_get_next", "not exported"),
    ("is_not_complete", "arch_mutex_create", "it takes arch_mutex_lock, which is missing"),
]


def run(*words):
    result = subprocess.run([*EMULATOR, TOOL, *words], capture_output=True, text=True, timeout=300)
    return result.returncode, result.stdout, result.stderr


class Check(unittest.TestCase):
    def test_sound_libraries_pass(self):
        for library in SOUND:
            status, out, err = run("--seconds", "0.3", "--timeout", "60", library)
            self.assertEqual((status, err), (0, ""), out)
            self.assertEqual(len(re.findall("^pass  ", out, re.M)), len(names_in_headers()), out)

    def test_each_fault_is_named(self):
        for library, function, reason in FAULTS:
            status, out, err = run("--seconds", "0.3", "--timeout",
                                   "3" if library == "keeps_locked" else "60",
                                   "--only", function, str(BAD / f"libbad_{library}.so"))
            self.assertEqual(status, 1, (library, out, err))
            self.assertRegex(out, f"^FAIL  {function}  .*({reason}).*\n0 passed, 1 failed\n$")

    def test_every_function_of_the_headers_is_looked_for(self):
        self.assertEqual(sorted(run("--list")[1].split()), names_in_headers())

    def test_json_holds_passes_and_reasons(self):
        library = str(BAD / "libbad_is_not_complete.so")
        status, out, _ = run("--json", "-o", "arch_time", "-o", "arch_rand_bytes", library)
        self.assertEqual(status, 1)
        results = json.loads(out)
        self.assertEqual(results["results"][1],
                         {"function": "arch_rand_bytes", "passed": False, "reason": "not exported"})
        self.assertEqual((results["library"], results["failed"]), (library, 2))

    def test_results_that_cannot_be_written_are_no_pass(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([*EMULATOR, TOOL, "-o", "arch_time", SOUND[0]], stdout=full,
                                  stderr=subprocess.PIPE, text=True, timeout=300)
        self.assertEqual((done.returncode, done.stderr.count("\n")), (3, 1))

    def test_exit_status_tells_what_went_wrong(self):
        for words, status in [(["/nowhere.so"], 2), (["--only", "arch_nothing"], 3),
                              (["--seconds", "x"], 3), (["a", "b"], 3), (["--help"], 0)]:
            self.assertEqual(run(*words)[0], status, words)


def names_in_headers():
    text = "".join(header.read_text() for header in HEADERS.glob("*.h"))
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    return sorted(re.findall(r"\b((?:arch|utl)[a-zA-Z0-9]*_\w+)\(", text))


if __name__ == "__main__":
    words = sys.argv[1:]
    EMULATOR = words[words.index("--") + 1:] if "--" in words else []
    words = words[:words.index("--")] if "--" in words else words
    TOOL, HEADERS, BAD, SOUND = words[0], pathlib.Path(words[1]), pathlib.Path(words[2]), words[3:]
    unittest.main(argv=sys.argv[:1], verbosity=2)

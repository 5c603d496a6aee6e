#!/usr/bin/env python3
"""Compares the binary interface of both libraries with the one written down in this folder.

guard.py compare|accept MACHINE=BUILD-FOLDER...

abi/LIBRARY lists what programs rely on, a fact a line: the exported symbols with results and parameters,
and the types they lead to with sizes, offsets and virtual slots (from abidw). It leaves out what no
program can notice: private functions that are not virtual, inline functions, and the insides of types
that are not from a public header. abi/enumerators lists the values of the public headers' enumerators.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

HERE = pathlib.Path(__file__).resolve().parent
HEADERS = [HERE.parent / "include", HERE.parent / "platform/include"]
# Records of these headers are facts with all their members. cJSON's is part of the interface.
DESCRIBED = {"cJSON.h", *(path.name for folder in HEADERS for path in folder.rglob("*.h"))}
LIBRARIES = {"libhybase": "hybase", "libhyplatform": "platform"}
ABIDW = ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-elf-needed", "--no-parameter-names",
         "--exported-interfaces-only"]
# How many lines of a report one type may take.
LINES_OF_A_TYPE = 6

ADVICE_ADDED = """\
The binary interface has grown: programs built before still run, so this is a new minor version.
If it is wanted:   ./dev abi accept   and commit abi/ together with the change."""
ADVICE_CHANGED = """\
The binary interface has changed: programs built before may fail or corrupt memory. Mend it so that
they still run: new functions instead of changed ones, no field and no virtual function moved or added.
If it must be: this is a new major version; raise VERSION in CMakeLists.txt and SOVERSION of both
libraries, then   ./dev abi accept   and commit abi/ together with the change. See docs/abi.md."""


def output(*command, stdin=None):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, input=stdin).stdout


def toolchain():
    return output("abidw", "--version") + "g++ " + output("g++", "-dumpversion")


def exported(library):
    lines = output("nm", "-D", "--defined-only", library).splitlines()
    return {line.split()[-1].split("@")[0] for line in lines}


class Interface:
    """The facts about one library, each a name and a text. Types come in as something leads to them."""

    def __init__(self, library):
        with tempfile.TemporaryDirectory() as folder:
            whole = pathlib.Path(folder) / "abi"
            subprocess.run([*ABIDW, "--out-file", whole, library], check=True)
            root = ET.parse(whole).getroot()
        self.parents = {child: parent for parent in root.iter() for child in parent}
        # Each source file brings its own view of a class: the fullest one counts.
        self.by_id = {}
        for element in root.iter():
            other = self.by_id.setdefault(element.get("id"), element)
            if len(list(element.iter())) > len(list(other.iter())):
                self.by_id[element.get("id")] = element
        self.types, self.waiting = {}, []
        self.symbols = dict.fromkeys(self.public(exported(library), root), "")
        for element in root.iter():
            if element.get("elf-symbol-id") in self.symbols:
                self.symbols[element.get("elf-symbol-id")] = self.declaration(element)
        while self.waiting:
            self.add_type(self.waiting.pop())
        self.check_described()

    def check_described(self):
        """abidw knows the functions of a class from one source file only: the others would go unguarded."""
        unknown = [symbol for symbol, fact in self.symbols.items()
                   if not fact and not re.match(r"_ZT|_ZGV", symbol) and not re.search(r"[CD][0-5]E", symbol)]
        if unknown:
            sys.exit(f"abi: abidw does not describe {unknown[0]} and {len(unknown) - 1} more: "
                     "define all functions of a class in one source file")

    def public(self, symbols, root):
        """Leaves out private functions. All symbols of one name, as constructors have, go together."""
        private = {member[0].get("elf-symbol-id") for member in root.iter("member-function")
                   if member.get("access") == "private" and "vtable-offset" not in member.attrib}
        symbols = sorted(symbols)
        names = dict(zip(symbols, output("c++filt", stdin="\n".join(symbols)).splitlines()))
        private_names = {names[symbol] for symbol in symbols if symbol in private}
        return [symbol for symbol in symbols if names[symbol] not in private_names]

    def facts(self):
        return {**{key: value for name in sorted(self.types) for key, value in self.types[name].items()},
                **self.symbols}

    def declaration(self, element):
        if element.tag == "var-decl":
            return self.type(element.get("type-id"))
        scope = self.parents[element]
        if scope.tag == "member-function":
            self.type(self.parents[scope].get("id"))
        if scope.get("constructor") or scope.get("destructor"):
            # What they return differs between machines, and their symbols hold the parameters.
            return ""
        return ("static " if scope.get("static") else "") + self.signature(element)

    def signature(self, function, name=""):
        parameters = ["..." if parameter.get("is-variadic") else self.type(parameter.get("type-id"))
                      for parameter in function.iter("parameter") if not parameter.get("is-artificial")]
        result = function.find("return")
        return f"{self.type(result.get('type-id'))} {name}({', '.join(parameters)})"

    def type(self, type_id):
        """How a type is written. Types with a name become facts of their own."""
        element = self.by_id[type_id]
        if element.tag == "function-type":
            return self.signature(element, "(*)")
        if element.tag == "type-decl":
            return re.sub(r"^unnamed-enum-underlying-type-", "int", element.get("name"))
        if element.tag in ("pointer-type-def", "reference-type-def", "qualified-type-def", "array-type-def"):
            inner = self.type(element.get("type-id"))
            if element.tag == "pointer-type-def":
                to_function = self.by_id[element.get("type-id")].tag == "function-type"
                return inner if to_function else inner + "*"
            if element.tag == "reference-type-def":
                return inner + ("&" if element.get("kind") == "lvalue" else "&&")
            if element.tag == "array-type-def":
                return inner + "".join(f"[{part.get('length')}]" for part in element.iter("subrange"))
            words = [word for word in ("const", "volatile", "restrict") if element.get(word)]
            return " ".join([inner, *words] if inner.endswith("*") else [*words, inner])
        if element.get("is-anonymous") and "naming-typedef-id" not in element.attrib:
            return f"{self.kind(element)} {{{'; '.join(' '.join(m) for m in self.members(element))}}}"
        name = self.name(element)
        if element.tag == "typedef-decl":
            to = self.type(element.get("type-id"))
            if name.startswith("__") or to == name:
                return to
        if name not in self.types and self.is_described(element, name):
            self.types[name] = {}
            self.waiting.append(element)
        return re.sub(r"std::basic_(string\w*)<char(, std::\w+<char>)+>", r"std::\1", name)

    def name(self, element):
        scopes = []
        while element.tag not in ("abi-instr", "abi-corpus"):
            if element.get("name"):
                scopes.insert(0, element.get("name"))
            element = self.parents[element]
        return "::".join(scopes).replace("std::__cxx11::", "std::").replace(" >", ">")

    def is_described(self, element, name):
        """Every typedef but those of std, and the records of public headers."""
        if element.get("is-declaration-only"):
            return False
        header = pathlib.PurePath(element.get("filepath", "")).name
        return header in DESCRIBED or (element.tag == "typedef-decl" and not name.startswith("std::"))

    def kind(self, element):
        if element.tag == "enum-decl":
            return f"enum {self.type(element.find('underlying-type').get('type-id'))}"
        word = "union" if element.tag == "union-decl" else "struct" if element.get("is-struct") else "class"
        return f"{word} size {int(element.get('size-in-bits')) // 8}"

    def members(self, element):
        """Bases, virtual functions and fields: the place or the name, and what is there."""
        def place(child):
            bits = int(child.get("layout-offset-in-bits", 0))
            return f"@{bits // 8}" + (f" bit {bits % 8}" if bits % 8 else "")

        for number, base in enumerate(element.findall("base-class")):
            virtual = " virtual" if base.get("is-virtual") else ""
            yield f"base {number}", f"{self.type(base.get('type-id'))} {place(base)}{virtual}"
        virtuals = [member for member in element.findall("member-function")
                    if "vtable-offset" in member.attrib]
        for member in sorted(virtuals, key=lambda member: int(member.get("vtable-offset"))):
            if member.get("destructor"):
                yield "virtual", member[0].get("name")
            else:
                const = " const" if member.get("const") else ""
                yield (f"virtual {member.get('vtable-offset')}",
                       self.signature(member[0], member[0].get("name")) + const)
        for field in element.findall("data-member"):
            if not field.get("static"):
                yield field[0].get("name"), f"{self.type(field[0].get('type-id'))} {place(field)}"

    def add_type(self, element):
        name = self.name(element)
        if element.tag == "typedef-decl":
            self.types[name][name] = f"typedef {self.type(element.get('type-id'))}"
        else:
            self.types[name][name] = self.kind(element)
            self.types[name].update((f"{name}.{key}", text) for key, text in self.members(element))


def enumerators(build):
    """The enumerators of the public headers with their values; `build` has hyplatform/abi.h."""
    headers = sorted(path.relative_to(folder) for folder in HEADERS for path in folder.rglob("*.h"))
    names = []
    for path in sorted(path for folder in HEADERS for path in folder.rglob("*.h")):
        code = re.sub(r"/\*.*?\*/|//[^\n]*", "", path.read_text(), flags=re.S)
        for body in re.findall(r"^enum\b[^{;]*{(.*?)}", code, re.M | re.S):
            names += re.findall(r"(?:^|,)\s*(\w+)", body)
    program = ["#include <stdio.h>", *(f"#include <{header}>" for header in headers), "int main() {",
               *(f'printf("{name}: %lld\\n", (long long){name});' for name in sorted(names)), "}"]
    with tempfile.TemporaryDirectory() as folder:
        printer = pathlib.Path(folder) / "printer"
        includes = [f"-I{path}" for path in [*HEADERS, pathlib.Path(build) / "platform/include"]]
        output("g++", "-std=c++17", *includes, "-xc++", "-", "-o", printer, stdin="\n".join(program))
        return output(printer)


def merged(machines):
    """One text of the facts of all machines. Words that differ become x86_64/arm/arm-time64."""
    lines = []
    for key in dict.fromkeys(key for facts in machines.values() for key in facts):
        texts = {machine: facts[key] for machine, facts in machines.items() if key in facts}
        columns = [re.split("([ @])", text) for text in texts.values()]
        if len(texts) == len(machines) and len({len(words) for words in columns}) == 1:
            texts = {None: "".join("/".join(words if len(set(words)) > 1 else words[:1])
                                    for words in zip(*columns))}
        for text in dict.fromkeys(texts.values()):
            which = [machine for machine in texts if machine and texts[machine] == text]
            lines.append((f"[{' '.join(which)}] " if which else "") + f"{key}: {text}".removesuffix(": "))
    return "".join(f"{line}\n" for line in lines)


def difference(old, new):
    """What differs between two texts, line by line, and whether all that was there is as it was."""
    old, new = (dict(line.partition(": ")[::2] for line in text.splitlines()) for text in (old, new))
    changes, only_grown = {}, True
    for key in dict.fromkeys([*old, *new]):
        if key in old and key in new and old[key] == new[key]:
            continue
        # The name of a type comes before the dot. What a known type gains moves something.
        owner = key.rpartition(".")[0]
        only_grown &= key not in old and owner not in old
        if key in old and key in new:
            line = f"changed: {key}: {old[key]} became {new[key]}"
        else:
            word, text = ("removed", old[key]) if key in old else ("added", new[key])
            line = f"{word}: {key}" + (f": {text}" if text else "")
        changes.setdefault(owner or key, []).append(line)
    report = []
    for owner, lines in changes.items():
        if len(lines) > LINES_OF_A_TYPE:
            lines[LINES_OF_A_TYPE - 1:] = [f"and {len(lines) - LINES_OF_A_TYPE + 1} more of {owner}"]
        report += lines
    # A constructor has two symbols of one name.
    names = dict.fromkeys(output("c++filt", stdin="\n".join(report)).splitlines())
    return "".join(f"  {line}\n" for line in names), only_grown


def compare(texts, machines):
    incompatible = differs = False
    for name, text in texts.items():
        report, only_grown = difference((HERE / name).read_text(), text)
        incompatible |= not only_grown
        if report:
            differs = True
            print(f"== {name} differs from abi/{name}; a/b/c stands for {machines}\n{report}")
    if not differs:
        print("abi: nothing has changed")
        return 0
    print(ADVICE_CHANGED if incompatible else ADVICE_ADDED)
    written_with = (HERE / "toolchain").read_text()
    if written_with != toolchain():
        print("\nabi/ was written with other tools, which alone can make a difference:\n"
              f"{written_with}here:\n{toolchain()}", end="")
    return 1


def accept(texts, _):
    for name, text in {**texts, "toolchain": toolchain()}.items():
        (HERE / name).write_text(text)
    print("abi: written down; git diff --stat abi/ shows what is new")
    return 0


def main():
    builds = dict(argument.split("=") for argument in sys.argv[2:])
    texts = {name: merged({machine: Interface(pathlib.Path(build) / room / f"{name}.so").facts()
                           for machine, build in builds.items()}) for name, room in LIBRARIES.items()}
    texts["enumerators"] = enumerators(next(iter(builds.values())))
    return {"compare": compare, "accept": accept}[sys.argv[1]](texts, "/".join(builds))


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Compares the binary interface of both libraries with the one written down in this folder.

guard.py compare|accept MACHINE=BUILD-FOLDER...

abi/MACHINE/LIBRARY.symbols lists what the library exports, LIBRARY.abi describes functions, types and
virtual slots (abidw). Both leave out what no program can notice: private functions that are not
virtual, inline functions, and the insides of the C++ library's types. abi/enumerators lists the values of
the public headers' enumerators: most are no function's parameter, so no description has them.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

HERE = pathlib.Path(__file__).resolve().parent
HEADERS = [HERE.parent / "include", HERE.parent / "platform/include"]
LIBRARIES = {"libhybase": "hybase", "libhyplatform": "platform"}
ABIDW = ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--no-elf-needed",
         "--no-parameter-names", "--no-write-default-sizes", "--exported-interfaces-only",
         "--drop-private-types", "--type-id-style", "hash",
         *(word for folder in HEADERS for word in ("--headers-dir", folder))]
# Of abidiff's result: its own failure, wrong usage, some change.
ABIDIFF_FAILED, ABIDIFF_CHANGE = 1 | 2, 4

ADVICE_ADDED = """\
The binary interface has grown: programs built before still run, so this is a new minor version.
If it is wanted:   ./dev abi accept   and commit abi/ together with the change."""
ADVICE_CHANGED = """\
The binary interface has changed: programs built before may fail or corrupt memory. Mend it so that
they still run: new functions instead of changed ones, no field and no virtual function moved or added.
If it must be: this is a new major version; raise VERSION in CMakeLists.txt and SOVERSION of both
libraries, then   ./dev abi accept   and commit abi/ together with the change. See docs/abi.md."""


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def toolchain():
    return output("abidw", "--version") + "g++ " + output("g++", "-dumpversion")


def exported(library):
    lines = output("nm", "-D", "--defined-only", library).splitlines()
    return {line.split()[-1].split("@")[0] for line in lines}


def demangled(symbol):
    return output("c++filt", symbol).strip()


def function_symbol(element):
    """The symbol of a member function, None without one."""
    function = element.find("function-decl")
    return None if function is None else function.get("elf-symbol-id")


def cut(root, unwanted):
    for parent in list(root.iter()):
        for child in [child for child in parent if unwanted(child)]:
            parent.remove(child)


def cut_private_functions(root):
    """Returns their symbols. A private virtual function stays: its slot is part of the interface."""
    def is_private(element):
        return (element.tag == "member-function" and element.get("access") == "private"
                and "vtable-offset" not in element.attrib)
    private = {function_symbol(element) for element in root.iter() if is_private(element)} - {None}
    # A constructor has two symbols of one name, and the description may know only one of them. Other
    # symbols at the same place are functions that happen to do the same.
    for symbol in root.iter("elf-symbol"):
        for alias in symbol.get("alias", "").split(","):
            pair = {symbol.get("name"), alias}
            if alias and pair & private and len({demangled(name) for name in pair}) == 1:
                private |= pair
    cut(root, lambda e: is_private(e) or (e.tag == "elf-symbol" and e.get("name") in private))
    return private


def cut_inline_functions(root):
    cut(root, lambda e: (e.tag == "member-function" and function_symbol(e) is None
                         and "vtable-offset" not in e.attrib))


def cut_insides_of_std(root):
    for namespace in root.iter("namespace-decl"):
        if namespace.get("name") not in ("std", "__gnu_cxx", "__cxxabiv1"):
            continue
        for kind in [e for e in namespace.iter() if e.tag in ("class-decl", "union-decl")]:
            for child in [child for child in kind if child.tag != "member-type"]:
                kind.remove(child)


def cut_unreachable_types(root):
    """Keeps the types that exported functions and variables lead to."""
    parents = {child: parent for parent in root.iter() for child in parent}
    by_id = {}
    for element in root.iter():
        by_id.setdefault(element.get("id"), []).append(element)
    kept = set()
    waiting = [element for element in root.iter()
               if element.tag in ("function-decl", "var-decl") and "elf-symbol-id" in element.attrib]
    while waiting:
        element = waiting.pop()
        if element is None or element in kept:
            continue
        kept.add(element)
        waiting.append(parents.get(element))
        # A type inside another one is there for its own sake, when something leads to it.
        waiting.extend(child for child in element if child.tag != "member-type"
                       and element.tag not in ("abi-corpus", "abi-instr", "namespace-decl"))
        for name in ("type-id", "naming-typedef-id"):
            if name in element.attrib:
                waiting.extend(by_id.get(element.get(name), []))
    cut(root, lambda e: e not in kept and e.tag not in ("elf-symbol", "elf-function-symbols",
                                                         "elf-variable-symbols"))


def cut_repeated_types(root):
    """Each source file brings its own view of a class: the fullest one stays."""
    views = {}
    for element in root.iter():
        if element.tag in ("class-decl", "union-decl", "enum-decl"):
            views.setdefault(element.get("id"), []).append(element)
    surplus = {view for same in views.values()
               for view in sorted(same, key=lambda e: -sum(1 for _ in e.iter()))[1:]}
    cut(root, surplus.__contains__)


def describe(library):
    """The exported symbols and the description of a library, both as texts."""
    with tempfile.TemporaryDirectory() as folder:
        whole = pathlib.Path(folder) / "abi"
        subprocess.run([*ABIDW, "--out-file", whole, library], check=True)
        root = ET.parse(whole).getroot()
    symbols = exported(library) - cut_private_functions(root)
    cut_inline_functions(root)
    cut_insides_of_std(root)
    cut_repeated_types(root)
    cut_unreachable_types(root)
    ET.indent(root, " ")
    return ("".join(f"{name}\n" for name in sorted(symbols)),
            ET.tostring(root, encoding="unicode") + "\n")


def enumerators(build):
    """The enumerators of the public headers with their values, a line each; `build` has hyplatform/abi.h."""
    headers = sorted(path.relative_to(folder) for folder in HEADERS for path in folder.rglob("*.h"))
    names = []
    for path in sorted(path for folder in HEADERS for path in folder.rglob("*.h")):
        code = re.sub(r"/\*.*?\*/|//[^\n]*", "", path.read_text(), flags=re.S)
        for body in re.findall(r"^enum\b[^{;]*{(.*?)}", code, re.M | re.S):
            names += re.findall(r"(?:^|,)\s*(\w+)", body)
    program = ["#include <stdio.h>", *(f"#include <{header}>" for header in headers), "int main() {",
               *(f'printf("{name} %lld\\n", (long long){name});' for name in sorted(names)), "}"]
    with tempfile.TemporaryDirectory() as folder:
        printer = pathlib.Path(folder) / "printer"
        includes = [f"-I{path}" for path in [*HEADERS, pathlib.Path(build) / "platform/include"]]
        subprocess.run(["g++", "-std=c++17", *includes, "-xc++", "-", "-o", printer], check=True, text=True,
                       input="\n".join(program))
        return output(printer)


def changed_enumerators(new):
    """What differs from abi/enumerators, as a text, and whether old programs still run."""
    old_values = dict(line.split() for line in (HERE / "enumerators").read_text().splitlines())
    new_values = dict(line.split() for line in new.splitlines())
    lines = [f"{name}: {value} became {new_values.get(name, 'nothing')}"
             for name, value in old_values.items() if new_values.get(name) != value]
    added = [f"added: {name} = {value}" for name, value in new_values.items() if name not in old_values]
    return "".join(f"  {line}\n" for line in lines + added), not lines


def abidiff(old, new, *options):
    result = subprocess.run(["abidiff", "--harmless", "--show-bytes", *options, old, new], text=True,
                            stdout=subprocess.PIPE)
    if result.returncode & ABIDIFF_FAILED:
        sys.exit(f"abi: abidiff cannot compare {old}")
    return result.returncode & ABIDIFF_CHANGE != 0, result.stdout


def report_of(old, new):
    """What changed in a description, and whether all that was there is as it was."""
    changed, full = abidiff(old, new, "--no-added-syms")
    # The short form names a changed type once, not with every function that leads to it, but knows
    # nothing of a const that a parameter lost.
    short_shows_it = not changed or abidiff(old, new, "--no-added-syms", "--leaf-changes-only")[0]
    differs, short = abidiff(old, new, "--leaf-changes-only")
    return (short if differs else "") + ("" if short_shows_it else full), not changed


def difference(folder, name, symbols, description):
    """What differs from the files in `folder`, as a text, and whether old programs still run."""
    old_symbols = set((folder / f"{name}.symbols").read_text().split())
    new_symbols = set(symbols.split())
    report, only_grown = "", old_symbols <= new_symbols
    if description != (folder / f"{name}.abi").read_text():
        with tempfile.NamedTemporaryFile("w", suffix=".abi") as new:
            new.write(description)
            new.flush()
            report, same = report_of(folder / f"{name}.abi", new.name)
            only_grown &= same
    lines = [f"removed: {demangled(symbol)}" for symbol in sorted(old_symbols - new_symbols)]
    lines += [f"added: {demangled(symbol)}" for symbol in sorted(new_symbols - old_symbols)]
    lines += [line for line in report.splitlines() if line.strip() and " summary: " not in line]
    return "".join(f"  {line}\n" for line in lines), only_grown


def compare(interfaces, values):
    """Prints each difference once, however many machines have it. Returns 1 for any."""
    machines_with = {}
    changed_values, only_grown = changed_enumerators(values)
    incompatible = not only_grown
    for (machine, name), interface in interfaces.items():
        text, only_grown = difference(HERE / machine, name, *interface)
        if text:
            machines_with.setdefault((name, text), []).append(machine)
            incompatible |= not only_grown
    if not machines_with and not changed_values:
        print("abi: nothing has changed")
        return 0
    for (name, text), machines in machines_with.items():
        print(f"== {name}.so on {', '.join(machines)} differs from what abi/ says\n{text}")
    if changed_values:
        print(f"== enumerators differ from what abi/ says\n{changed_values}")
    print(ADVICE_CHANGED if incompatible else ADVICE_ADDED)
    written_with = (HERE / "toolchain").read_text()
    if written_with != toolchain():
        print("\nabi/ was written with other tools, which alone can make a difference:\n"
              f"{written_with}here:\n{toolchain()}", end="")
    return 1


def accept(interfaces, values):
    for (machine, name), (symbols, description) in interfaces.items():
        folder = HERE / machine
        folder.mkdir(exist_ok=True)
        (folder / f"{name}.symbols").write_text(symbols)
        (folder / f"{name}.abi").write_text(description)
    (HERE / "enumerators").write_text(values)
    (HERE / "toolchain").write_text(toolchain())
    print("abi: written down; git diff --stat abi/ shows what is new")
    return 0


def main():
    action = {"compare": compare, "accept": accept}[sys.argv[1]]
    builds = [argument.split("=") for argument in sys.argv[2:]]
    return action({(machine, name): describe(pathlib.Path(build) / room / f"{name}.so")
                   for machine, build in builds for name, room in LIBRARIES.items()},
                  enumerators(builds[0][1]))


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Compares the binary interface of both libraries with the one written down in this folder.

guard.py compare|accept MACHINE=BUILD-FOLDER...

abi/MACHINE/LIBRARY.symbols lists what the library exports, LIBRARY.abi describes functions, types and
virtual slots (abidw). Both leave out what no program can notice: private functions that are not
virtual, inline functions, and the insides of the C++ library's types.
"""
import pathlib
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

HERE = pathlib.Path(__file__).resolve().parent
LIBRARIES = {"libhybase": "hybase", "libhyplatform": "platform"}
ABIDW = ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--no-elf-needed",
         "--no-parameter-names", "--no-write-default-sizes", "--exported-interfaces-only",
         "--drop-private-types", "--headers-dir", HERE.parent / "include",
         "--headers-dir", HERE.parent / "platform/include", "--type-id-style", "hash"]
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


def abidiff(old, new, *options):
    result = subprocess.run(["abidiff", "--harmless", "--leaf-changes-only", "--show-bytes",
                             *options, old, new], text=True,
                            stdout=subprocess.PIPE)
    if result.returncode & ABIDIFF_FAILED:
        sys.exit(f"abi: abidiff cannot compare {old}")
    return result.returncode & ABIDIFF_CHANGE != 0, result.stdout


def difference(folder, name, symbols, description):
    """What differs from the files in `folder`, as a text, and whether old programs still run."""
    old_symbols = set((folder / f"{name}.symbols").read_text().split())
    new_symbols = set(symbols.split())
    report, only_grown = "", old_symbols <= new_symbols
    if description != (folder / f"{name}.abi").read_text():
        with tempfile.NamedTemporaryFile("w", suffix=".abi") as new:
            new.write(description)
            new.flush()
            changed, report = abidiff(folder / f"{name}.abi", new.name)
            if not changed:
                report = ""
            only_grown &= not abidiff(folder / f"{name}.abi", new.name, "--no-added-syms")[0]
    lines = [f"removed: {demangled(symbol)}" for symbol in sorted(old_symbols - new_symbols)]
    lines += [f"added: {demangled(symbol)}" for symbol in sorted(new_symbols - old_symbols)]
    lines += [line for line in report.splitlines() if line.strip() and " summary: " not in line]
    return "".join(f"  {line}\n" for line in lines), only_grown


def compare(interfaces):
    """Prints each difference once, however many machines have it. Returns 1 for any."""
    machines_with, incompatible = {}, False
    for (machine, name), interface in interfaces.items():
        text, only_grown = difference(HERE / machine, name, *interface)
        if text:
            machines_with.setdefault((name, text), []).append(machine)
            incompatible |= not only_grown
    if not machines_with:
        print("abi: nothing has changed")
        return 0
    for (name, text), machines in machines_with.items():
        print(f"== {name}.so on {', '.join(machines)} differs from what abi/ says\n{text}")
    print(ADVICE_CHANGED if incompatible else ADVICE_ADDED)
    written_with = (HERE / "toolchain").read_text()
    if written_with != toolchain():
        print("\nabi/ was written with other tools, which alone can make a difference:\n"
              f"{written_with}here:\n{toolchain()}", end="")
    return 1


def accept(interfaces):
    for (machine, name), (symbols, description) in interfaces.items():
        folder = HERE / machine
        folder.mkdir(exist_ok=True)
        (folder / f"{name}.symbols").write_text(symbols)
        (folder / f"{name}.abi").write_text(description)
    (HERE / "toolchain").write_text(toolchain())
    print("abi: written down; git diff --stat abi/ shows what is new")
    return 0


def main():
    action = {"compare": compare, "accept": accept}[sys.argv[1]]
    builds = [argument.split("=") for argument in sys.argv[2:]]
    return action({(machine, name): describe(pathlib.Path(build) / room / f"{name}.so")
                   for machine, build in builds for name, room in LIBRARIES.items()})


if __name__ == "__main__":
    sys.exit(main())

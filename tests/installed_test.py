#!/usr/bin/env python3
"""Builds the README's programs against the installed library, as its users do: with CMake and by hand
with pkg-config, in an empty prefix, and lets each client call its server.

usage: installed_test.py BUILD README CC CXX [SYSROOT TOOLCHAIN EMULATOR...]

Without a sysroot the library goes into a prefix of its own. With one it goes into a copy of the sysroot
under /usr, where .pc files and CMake files have to name places inside the sysroot.
"""
import os
import re
import shlex
import socket
import subprocess
import sys
import tempfile
import time

build, readme, cc, cxx = sys.argv[1:5]
sysroot, toolchain, *emulator = sys.argv[5:] if len(sys.argv) > 5 else (None, None)
ANSWER = "40 + 2 = 42\n"


def run(command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=120, **options)
    if done.returncode != 0:
        sys.exit(f"{command}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def unpack_readme(folder):
    """Writes the README's programs, its CMakeLists.txt and its commands into `folder`."""
    blocks = re.findall(r"```(\w+)\n(.*?)```", open(readme).read(), re.S)
    names = {}
    for language, text in blocks:
        found = re.match(r"(?://|#) (?:docs/examples/)?([\w.]+)\n", text)
        name = found.group(1) if found else "build.sh" if "pkg-config" in text else None
        if name:
            names[name] = text
    expected = {"server.cpp", "client.cpp", "server_in_c.c", "client_in_c.c", "CMakeLists.txt",
                "build.sh"}
    if names.keys() != expected:
        sys.exit(f"the README shows {sorted(names)}, not {sorted(expected)}")
    for name, text in names.items():
        with open(f"{folder}/{name}", "w") as file:
            file.write(text)


def install(folder):
    """Installs runtime and development files; returns the prefix and the environment of builds."""
    environment = dict(os.environ)
    prefix, root = f"{folder}/prefix", ""
    if sysroot:
        prefix, root = "/usr", f"{folder}/sysroot"
        run(["cp", "-al", sysroot, root])
        environment["DESTDIR"] = root
    for component in "runtime", "development":
        run(["cmake", "--install", build, "--prefix", prefix, "--component", component],
            env=environment)
    environment.pop("DESTDIR", None)
    pc_files = run(["find", root + prefix, "-name", "hybase.pc"]).split()
    if len(pc_files) != 1:
        sys.exit(f"no hybase.pc, or several: {pc_files}")
    environment["PKG_CONFIG_PATH"] = os.path.dirname(pc_files[0])
    libraries = os.path.dirname(os.path.dirname(pc_files[0]))
    if sysroot:
        multiarch = f"{root}/usr/lib/arm-linux-gnueabihf"
        environment["PKG_CONFIG_SYSROOT_DIR"] = root
        environment["PKG_CONFIG_LIBDIR"] = f"{multiarch}/pkgconfig"
        libraries += f":{multiarch}"
        # What ld looks for behind a library is not found by -L.
        environment["LDFLAGS"] = f"-Wl,-rpath-link,{multiarch}"
    return root + prefix, root, libraries, environment


def build_with_cmake(sources, prefix, root, environment):
    options = [f"-DCMAKE_PREFIX_PATH={prefix}"]
    if sysroot:
        options = [f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", f"-DHYBASE_ARM_SYSROOT={root}"]
    run(["cmake", "-S", sources, "-B", f"{sources}/by-cmake", f"-DCMAKE_C_COMPILER={cc}",
         f"-DCMAKE_CXX_COMPILER={cxx}", *options], env=environment)
    run(["cmake", "--build", f"{sources}/by-cmake"], env=environment)
    return f"{sources}/by-cmake"


def build_by_hand(sources, environment):
    """Runs the README's commands as they stand; cc and c++ are the compilers under test."""
    programs = f"{sources}/bin"
    os.mkdir(programs)
    for name, compiler in ("cc", cc), ("c++", cxx):
        with open(f"{programs}/{name}", "w") as file:
            file.write(f'#!/bin/sh\nexec {shlex.quote(compiler)} "$@" $LDFLAGS\n')
        os.chmod(f"{programs}/{name}", 0o755)
    path = f"{programs}:{environment['PATH']}"
    run(["sh", "-e", "build.sh"], cwd=sources, env={**environment, "PATH": path})
    return sources


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(port, server):
    for _ in range(300):
        if server.poll() is not None:
            sys.exit(f"the server ended by itself: {server.returncode}")
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return
        except OSError:
            time.sleep(0.05)
    sys.exit("the server does not listen")


def call(folder, emulator):
    port = str(free_port())
    server = subprocess.Popen([*emulator, f"{folder}/server", port], stdout=subprocess.DEVNULL)
    try:
        wait_for(int(port), server)
        # The library logs to standard output as well: the answer is one of the lines.
        spoken = run([*emulator, f"{folder}/client", port])
    finally:
        server.kill()
        server.wait()
    if ANSWER not in spoken:
        sys.exit(f"{folder}/client said: {spoken}")
    spoken = run([*emulator, f"{folder}/client_in_c", *emulator, f"{folder}/server_in_c"])
    if spoken != ANSWER:
        sys.exit(f"{folder}/client_in_c said: {spoken}")


def main():
    with tempfile.TemporaryDirectory() as folder:
        sources = f"{folder}/sources"
        os.mkdir(sources)
        prefix, root, libraries, environment = install(folder)
        unpack_readme(sources)
        run_with = ["env", f"LD_LIBRARY_PATH={libraries}"]
        if sysroot:
            run_with = [re.sub("LD_LIBRARY_PATH=.*", f"LD_LIBRARY_PATH={libraries}", word)
                        for word in emulator]
        call(build_with_cmake(sources, prefix, root, environment), run_with)
        call(build_by_hand(sources, environment), run_with)


main()

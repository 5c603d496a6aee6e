#!/usr/bin/env python3
"""Many clients at once against the device, and what is left of them when they have gone.

usage: device_load.py CLIENTS CALLS MAX_MIB HYDEVICE HYRPC [EMULATOR...]

Every call must be answered, rightly; the device's peak memory must stay below MAX_MIB (0: not
checked) and its threads must go when the clients have. Times are shown, never judged.
"""
import subprocess
import sys
import time

CLIENTS, CALLS, MAX_MIB = map(int, sys.argv[1:4])
HYDEVICE, HYRPC, EMULATOR = sys.argv[4], sys.argv[5], sys.argv[6:]
SIGNED = ["-u", "guest", "-p", "guest-secret"]
ADD = ["add", '{"a": 40, "b": 2}']


def status(pid, key):
    with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as lines:
        return next(int(line.split()[1]) for line in lines if line.startswith(key))


def comes_down_to(pid, threads, seconds):
    deadline = time.monotonic() + seconds
    while status(pid, "Threads:") > threads and time.monotonic() < deadline:
        time.sleep(0.1)
    return status(pid, "Threads:") <= threads


def hyrpc(*words):
    return subprocess.run(EMULATOR + [HYRPC, *words], capture_output=True, text=True, timeout=100)


def run(device, address):
    idle = status(device.pid, "Threads:")
    one = hyrpc(*SIGNED, address, *ADD)
    assert '"sum":\t42' in one.stdout, one
    bench = subprocess.Popen(
        EMULATOR + [HYRPC, "bench", "-c", str(CLIENTS), "-n", str(CALLS), *SIGNED, address, *ADD],
        stdout=subprocess.PIPE, text=True)
    busy = 0
    while bench.poll() is None:
        busy = max(busy, status(device.pid, "Threads:"))
        time.sleep(0.05)
    figures = bench.stdout.read()
    print(figures, end="")
    assert bench.returncode == 0, bench.returncode
    assert f"calls           {CLIENTS * CALLS}\n" in figures
    assert busy >= idle + CLIENTS, (idle, busy)
    assert comes_down_to(device.pid, idle, 20), "threads are left"
    peak = status(device.pid, "VmHWM:") / 1024
    print(f"device: {idle} threads idle, {busy} busy, peak memory {peak:.1f} MiB")
    assert MAX_MIB == 0 or peak < MAX_MIB, peak


def main():
    with subprocess.Popen(EMULATOR + [HYDEVICE, "--port", "0"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True) as device:
        try:
            address = next(line.split()[2] for line in device.stdout
                           if line.startswith("listening at "))
            # What the device prints on must be read, or it would wait.
            drain = subprocess.Popen(["cat"], stdin=device.stdout, stdout=subprocess.DEVNULL)
            run(device, address)
        finally:
            device.terminate()
            assert device.wait(30) == 0, device.returncode
            drain.wait(10)


if __name__ == "__main__":
    main()

#!/usr/bin/env bash
# Drives the example device with hyrpc and shows what happens: demo.sh HYDEVICE HYRPC FOLDER
# Every step says what it expects; the exit status is 0 only if every step gave that.
set -euo pipefail

hydevice=$1
hyrpc=$2
folder=$3
mkdir -p "$folder"
rm -rf "${folder:?}"/*
mkdir "$folder/log"

failures=0
device=
trap 'stop_device' EXIT

# start_device OPTION...: sets $device and $address; the device's own output goes to a file.
start_device() {
    : >"$folder/device.out"
    "$hydevice" "$@" >"$folder/device.out" 2>&1 &
    device=$!
    address=
    for _ in $(seq 100); do
        address=$(sed -n 's/^listening at //p' "$folder/device.out")
        [ -n "$address" ] && break
        kill -0 "$device" 2>/dev/null || break
        sleep 0.05
    done
    [ -n "$address" ] || { cat "$folder/device.out"; echo "demo: the device did not start"; exit 1; }
    printf '\n# hydevice %s   (process %s, listening at %s)\n' "$*" "$device" "$address"
}

stop_device() {
    [ -n "$device" ] || return 0
    kill "$device" 2>/dev/null || true
    wait "$device" 2>/dev/null && status=0 || status=$?
    device=
    if [ "$status" = 0 ]; then echo "# device stopped cleanly"; else fail "device ended with status $status"; fi
}

fail() {
    printf '   \033[31mNOT AS EXPECTED: %s\033[0m\n' "$*"
    failures=$((failures + 1))
}

# step TITLE STATUS TEXT OPTION...: calls hyrpc, expects that exit status and TEXT in what it prints.
step() {
    local title=$1 status=$2 text=$3 output got=0 word
    shift 3
    printf '\n\033[1m%s\033[0m\n$ hyrpc' "$title"
    for word in "$@"; do
        case "$word" in *[\ \"\{]*) printf " '%s'" "$word" ;; *) printf ' %s' "$word" ;; esac
    done
    echo
    output=$("$hyrpc" "$@" 2>&1) || got=$?
    sed 's/^/   /' <<<"$output"
    [ "$got" = "$status" ] || fail "exit status $got, expected $status"
    grep -qF -- "$text" <<<"$output" || fail "no '$text' in the output"
    printf '   exit status %s\n' "$got"
}

admin=(-u admin -p admin-secret)
guest=(-u guest -p guest-secret)

start_device --port 0 --log "$folder/log" --log-bytes 2000 --log-files 3
step "The administrator asks what device this is" 0 '"hydevice"' "${admin[@]}" "$address" device_info
step "A guest adds two numbers" 0 '"sum":	42' "${guest[@]}" "$address" add '{"a": 40, "b": 2}'
step "A wrong password is refused" 1 'error -32605: No User or Error Passwd' \
    -u admin -p wrong "$address" add '{"a": 1, "b": 2}'
step "A guest may not reset the counters" 1 'error -32604: No Power' \
    "${guest[@]}" "$address" reset_counters
step "The administrator may" 0 '"errorcode":	0' "${admin[@]}" "$address" reset_counters
step "A method nobody knows" 1 'error -32601: Method not found' "${guest[@]}" "$address" make_coffee
step "A parameter of the wrong type" 1 'error -1: add takes the numbers a and b' \
    "${guest[@]}" "$address" add '{"a": "one", "b": 2}'
step "Logging in needs no digest" 0 '"level":	2' \
    "$address" account_login '{"name": "guest", "password": "guest-secret"}'

step "The administrator changes two settings" 0 '"name":	"front door"' \
    "${admin[@]}" "$address" config_set '{"name": "front door", "log_level": 4}'
step "A setting of the wrong type is refused, and says why" 1 'error -1: event_seconds must be a number' \
    "${admin[@]}" "$address" config_set '{"event_seconds": "soon"}'
step "Everybody may read them" 0 '"event_seconds":	1' "${guest[@]}" "$address" config_get

printf '\n\033[1mA peer in another language, written from docs/protocol.md alone\033[0m\n'
echo "$ tests/peer.py ${address/:/ } guest guest-secret"
if python3 tests/peer.py "${address%:*}" "${address##*:}" guest guest-secret; then
    echo "   logged in, got the right sum, was refused with a wrong password"
else
    fail "the peer did not get what it should"
fi

head -c 100000 /dev/urandom >"$folder/up.bin"
step "100,000 bytes go up; the device answers with their MD5" 0 "$(md5sum <"$folder/up.bin" | cut -c 1-32)" \
    "${guest[@]}" --bin-in "$folder/up.bin" "$address" upload
step "70,000 bytes come down" 0 '"size":	70000' \
    "${guest[@]}" --bin-out "$folder/down.bin" "$address" download '{"size": 70000}'
[ "$(wc -c <"$folder/down.bin")" = 70000 ] || fail "down.bin has not 70000 bytes"
step "Two events, as they come" 0 '"method":"event"' --watch --count 2 "$address"
stop_device

printf '\n\033[1mWhat the device logged: files of 2,000 bytes, the three newest are kept\033[0m\n'
ls -l "$folder/log" | tail -n +2 | awk '{ print "   " $1, $5, $NF }'
newest=$(ls "$folder/log" | tail -n 1)
tail -n 3 "$folder/log/$newest" | sed 's/^/   /'
count=$(ls "$folder/log" | wc -l)
[ "$count" -ge 2 ] && [ "$count" -le 3 ] || fail "$count log files, expected 2 or 3"
grep -q 'download by guest from 127.0.0.1: 0' "$folder"/log/*.log || fail "the download was not logged"

start_device --unix "hydevice-demo-$$"
step "The same over an abstract Unix socket" 0 '"sum":	-1.5' \
    "${guest[@]}" "$address" add '{"a": 1, "b": -2.5}'
stop_device
step "Nobody is listening there any more" 2 'cannot connect' -t 3 "$address" device_info

echo
if [ $failures -gt 0 ]; then
    echo "demo: $failures steps not as expected"
    exit 1
fi
echo "demo: every step as expected"

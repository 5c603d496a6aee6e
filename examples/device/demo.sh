#!/usr/bin/env bash
# Drives the example device with hyrpc and shows what happens: demo.sh HYDEVICE HYRPC FONTS FOLDER
# Every step says what it expects; the exit status is 0 only if every step gave that.
set -euo pipefail

hydevice=$1
hyrpc=$2
fonts=$(realpath "$3")
folder=$4
mkdir -p "$folder"
rm -rf "${folder:?}"/*
mkdir "$folder/log"

failures=0
device=
output=  # of the last step
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
    local title=$1 status=$2 text=$3 got=0 word
    shift 3
    printf '\n\033[1m%s\033[0m\n$ hyrpc' "$title"
    for word in "$@"; do
        [ ${#word} -le 200 ] || word="${word:0:60} ..."
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

# The settings that come with the example, but for a port that is free, and times and sizes that a
# demonstration can wait for.
here=$(dirname "$0")
cp "$here/channels.csv" "$folder/"
sed -e 's/^port=.*/port=0/' -e 's/^lock_seconds=.*/lock_seconds=2/' \
    -e 's/^token_seconds=.*/token_seconds=1/' -e "s#^;dir=.*#dir=$folder/log#" \
    -e 's/^bytes=.*/bytes=2000/' -e 's/^files=.*/files=3/' \
    -e "s#^;font_\(..\)=#font_\1=$fonts/#" "$here/device.ini" >"$folder/device.ini"
start_device "$folder/device.ini"
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
step "Nor does somebody nobody knows" 1 'error -32604: No Power' \
    -u nobody -p '' "$address" add '{"a": 1, "b": 2}'

login='{"name": "guest", "password": "guest-secret"}'
step "Logging in needs no digest, and gives a token" 0 '"token"' "$address" account_login "$login"
token=$(sed -n 's/.*"token":	"\(.*\)".*/\1/p' <<<"$output")
step "The token tells who it is" 0 '"name":	"guest"' \
    "${guest[@]}" "$address" session_info "{\"token\": \"$token\"}"
echo && echo "   ... 1.2 seconds later"
sleep 1.2
step "A token that was not used for a second is not good any more" 1 'log in again' \
    "${guest[@]}" "$address" session_info "{\"token\": \"$token\"}"
for password in guess again more; do
    step "A wrong password" 1 'wrong name or password' \
        "$address" account_login "{\"name\": \"guest\", \"password\": \"$password\"}"
done
step "Blocked: the right password does not help now" 1 'blocked for another' \
    "$address" account_login "$login"
echo && echo "   ... 2.2 seconds later"
sleep 2.2
step "The block has ended" 0 '"token"' "$address" account_login "$login"
token=$(sed -n 's/.*"token":	"\(.*\)".*/\1/p' <<<"$output")
step "Logging out" 0 '"errorcode":	0' "${guest[@]}" "$address" logout "{\"token\": \"$token\"}"

step "The table of channels" 0 '"garden"' "${guest[@]}" "$address" channel_list
step "The state as a TLV message" 0 'rule areas  #1: 100,100 800,120 420,700' \
    "${guest[@]}" --tlv "$address" tlv_status

step "An overlay, drawn from a list of commands: $folder/overlay.png" 0 '"errorcode":	0' \
    "${guest[@]}" --bin-out "$folder/overlay.png" "$address" osd_draw "$(cat "$here/overlay.json")"
[ "$(head -c 4 "$folder/overlay.png" | tail -c 3)" = PNG ] || fail "overlay.png is no PNG"
step "A command that cannot be drawn" 1 "command 1: op 'circle' is none of" "${guest[@]}" "$address" \
    osd_draw '{"width": 9, "height": 9, "commands": [{"op": "circle"}]}'

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
printf '\n\033[1mSettings that cannot work end the program with one line\033[0m\n'
sed 's/^port=.*/port=70000/' "$here/device.ini" >"$folder/bad.ini"
sed 's/^csv=.*/csv=missing.csv/' "$here/device.ini" >"$folder/no-table.ini"
for bad in "$folder/missing.ini" "$folder/bad.ini" "$folder/no-table.ini"; do
    echo "$ hydevice $bad"
    if line=$("$hydevice" "$bad" 2>&1); then fail "the device started"; fi
    sed 's/^/   /' <<<"$line"
    [ "$(wc -l <<<"$line")" = 1 ] || fail "more than one line"
    grep -qF "$bad" <<<"$line" || fail "the line does not name the file"
done

step "Nobody is listening there any more" 2 'cannot connect' -t 3 "$address" device_info

echo
if [ $failures -gt 0 ]; then
    echo "demo: $failures steps not as expected"
    exit 1
fi
echo "demo: every step as expected"

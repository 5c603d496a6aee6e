#!/usr/bin/env bash
# Installs the packages of one architecture where nothing is installed, and uses them.
#
#   clean_root_test.sh native FOLDER   a new root of this machine's architecture: apt installs the
#                                      packages in it, then docs/getting-started.md is followed there
#                                      word for word
#   clean_root_test.sh armhf FOLDER    apt, made to think it runs on armhf, finds what the packages
#                                      depend on; all is unpacked into one folder and run by qemu-arm
#
# FOLDER holds the .deb files and takes the root. Needs root for chroot and for unpacking.
set -euo pipefail
kind=$1
debs=$(cd "$2" && pwd)
root=$debs/root-$kind
here=$(cd "$(dirname "$0")" && pwd)
rm -rf --one-file-system "$root"
# Nothing but logs stays behind, whatever happens: what root made here its owner could not remove.
trap 'rm -rf --one-file-system "$root" "$debs/apt-armhf"' EXIT

sources() { # the machine's own sources of Debian's packages, one "deb" line each
    apt-get indextargets --format 'deb $(REPO_URI) $(CODENAME) $(COMPONENT)' \
        'Created-By: Packages' 'Origin: Debian' | sort -u
}

native() {
    local arch base suite walk
    arch=$(dpkg --print-architecture)
    read -r _ base suite _ < <(sources | grep -vE ' [a-z]+-(updates|security|backports) ') ||
        { echo "apt knows no source of Debian's packages on this machine" >&2; exit 1; }
    # What it mounts goes with it, however it ends.
    unshare --mount debootstrap --variant=minbase "$suite" "$root" "$base" >"$debs/native.log" 2>&1 || show_log
    sources >"$root/etc/apt/sources.list"
    echo 'APT::Install-Recommends "false";' >"$root/etc/apt/apt.conf.d/99small"
    walk=$root/srv/walk
    mkdir "$walk"
    cp "$debs"/*_"$arch".deb "$walk"
    python3 "$here/page_to_script.py" "$here/../docs/getting-started.md" "$walk"
    in_root apt-get update >>"$debs/native.log" 2>&1 || true
    in_root bash -c 'cd /srv/walk && bash install.sh' >>"$debs/native.log" 2>&1 || show_log
    # A network of its own: the page's port is free there.
    unshare --net bash -c 'ip link set lo up && exec chroot "$0" bash -c "cd /srv/walk && bash walk.sh"' \
        "$root" >>"$debs/native.log" 2>&1 || show_log
    grep -qF '40 + 2 = 42' "$debs/native.log" || show_log
    grep -qF '"sum":	42' "$debs/native.log" || show_log
    in_root hyrpc --version
    in_root hyplatform-check | tail -n 1
}

show_log() {
    tail -n 40 "$debs/$kind.log" >&2
    exit 1
}

in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"; }

armhf() {
    local apt=$debs/apt-armhf
    rm -rf "$apt"
    mkdir -p "$apt/lists/partial" "$apt/archives/partial" "$root"
    : >"$apt/status"
    local options=(-o "Dir::State::Lists=$apt/lists" -o "Dir::State::status=$apt/status"
        -o "Dir::Cache=$apt" -o "Dir::Cache::archives=$apt/archives" -o APT::Architecture=armhf
        -o APT::Architectures=armhf -o APT::Sandbox::User=root)
    { apt-get "${options[@]}" update || true; } >"$debs/armhf.log" 2>&1
    apt-get "${options[@]}" install -y --no-install-recommends --download-only \
        "$debs"/*_armhf.deb >>"$debs/armhf.log" 2>&1 || show_log
    local deb
    # Unpacked only: their scripts cannot run here, and no program needs them to have run.
    for deb in "$apt"/archives/*.deb "$debs"/*_armhf.deb; do dpkg -x "$deb" "$root"; done
    local run=(qemu-arm -L "$root" -E "LD_LIBRARY_PATH=$root/usr/lib/arm-linux-gnueabihf:$root/lib/arm-linux-gnueabihf")
    "${run[@]}" "$root/usr/bin/hyrpc" --version
    "${run[@]}" "$root/usr/bin/hyplatform-check" | tail -n 1
}

"$kind"

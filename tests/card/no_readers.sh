#!/usr/bin/env bash
# With a PC/SC service that has no readers, both card modes say so and succeed.
# Usage: no_readers.sh VELTCHECK
set -u
veltcheck=$1
work=$(mktemp -d)
pcscd_pid=
cleanup() {
    [ -n "$pcscd_pid" ] && kill "$pcscd_pid" 2>/dev/null && wait "$pcscd_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

mkdir "$work/readers"  # a reader configuration naming no reader
/usr/sbin/pcscd -f -c "$work/readers" > "$work/pcscd.log" 2>&1 &
pcscd_pid=$!

expect() {  # mode, banner
    local out
    for _ in $(seq 100); do
        "$veltcheck" "$1" | grep -q Readers && break
        sleep 0.1
    done
    out=$("$veltcheck" "$1" | od -An -c | tr -s ' \n' ' ')
    local want
    want=$(printf '\r\n%s\r\n\r\nReaders list is empty' "$2" | od -An -c | tr -s ' \n' ' ')
    if [ "$out" != "$want" ]; then
        echo "veltcheck $1: got [$out], want [$want]"
        cat "$work/pcscd.log"
        return 1
    fi
    "$veltcheck" "$1" > /dev/null || { echo "veltcheck $1 exited with $?"; return 1; }
}
expect -cs 'applet checksum mode:' && expect -ta 'Veltora Admin checksum mode:' && echo "1 passed, 0 failed"

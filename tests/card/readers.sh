#!/usr/bin/env bash
# The reader walk against a real pcscd with a reader configuration of its
# own: with no reader, both card modes say so, close the enumeration and
# succeed; with sixteen readers whose names take more than 2048 characters,
# every reader is visited. Usage: readers.sh VELTCHECK
set -u
veltcheck=$1
work=$(mktemp -d)
pcscd_pid=
stop_pcscd() {
    [ -n "$pcscd_pid" ] && kill "$pcscd_pid" 2>/dev/null && wait "$pcscd_pid" 2>/dev/null
    pcscd_pid=
}
trap 'stop_pcscd; rm -rf "$work"' EXIT

start_pcscd() {  # configuration directory
    /usr/sbin/pcscd -f -c "$1" > "$work/pcscd.log" 2>&1 &
    pcscd_pid=$!
}

# Runs until the output holds `count` reader lines (pcscd may still be
# coming up), then compares it with the expected bytes and checks status 0.
expect() {  # mode, expected output, count of reader lines
    local out=
    for _ in $(seq 100); do
        out=$("$veltcheck" "$1"; echo "status $?")
        [ "$(grep -c 'Readers list is empty\|card not found' <<< "$out")" -ge "$3" ] && break
        sleep 0.1
    done
    if [ "$out" != "$2"$'\n'"status 0" ]; then
        echo "veltcheck $1: got"; od -c <<< "$out" | head -40
        echo "want"; od -c <<< "$2" | head -40
        cat "$work/pcscd.log"
        return 1
    fi
}

mkdir "$work/none"
start_pcscd "$work/none"
expect -cs $'\r\napplet checksum mode:\r\n\r\nReaders list is empty\r' 1 &&
    expect -ta $'\r\nVeltora Admin checksum mode:\r\n\r\nReaders list is empty\r' 1 || exit 1
stop_pcscd

# vpcd gives each configured reader two slots, "<name> 00 00" and "<name> 00 01",
# on two ports; 8 of them make the 16 readers PC/SC allows. Names of 127
# characters make a list of 2049 with its NULs. The walk follows PC/SC's
# order, so the reader lines are compared as a set.
mkdir "$work/many"
pad=$(printf '%0112d' 0)
want=
for i in 0 1 2 3 4 5 6 7; do
    port=$(printf '0x%X' $((36100 + 2 * i)))
    printf 'FRIENDLYNAME "Reader %s %s"\nDEVICENAME /dev/null:%s\nLIBPATH /usr/lib/pcsc/drivers/serial/libifdvpcd.so\nCHANNELID %s\n' \
        "$i" "$pad" "$port" "$port" > "$work/many/vpcd$i"
    want+=" Reader $i $pad 00 00 : card not found"$'\r\n'" Reader $i $pad 00 01 : card not found"$'\r\n'
done
start_pcscd "$work/many"
for _ in $(seq 100); do
    out=$("$veltcheck" -cs)
    status=$?
    [ "$(grep -c 'card not found' <<< "$out")" -ge 16 ] && break
    sleep 0.1
done
if [ "$status" != 0 ] || [ "$(head -n 3 <<< "$out")" != $'\r\napplet checksum mode:\r\n\r' ] ||
    [ "$(tail -n +4 <<< "$out" | sort)" != "$(sort <<< "${want%$'\n'}")" ]; then
    echo "veltcheck -cs with 16 readers, status $status:"
    od -c <<< "$out" | head -60
    cat "$work/pcscd.log"
    exit 1
fi
echo "1 passed, 0 failed"

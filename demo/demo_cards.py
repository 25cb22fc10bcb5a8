#!/usr/bin/env python3
# Puts a simulated Veltora-2 GOST card into reader 0 and a Veltora Admin card
# into reader 1 of a running pcscd (vpcd readers), prints "ready" once PC/SC
# sees both, and keeps them there until it is stopped.
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests"))
import rows  # noqa: E402

gost = rows.SimCard([rows.CMD["AidGost2"], rows.CMD["AidSsn"]], ssn_code=0xAC, ssn=b"GOST-001")
admin = rows.SimCard([rows.CMD["AidAdmin"]], t0=True, answer61=True, sn=bytes.fromhex("41444D0000002026"))
for _ in range(150):  # pcscd opens vpcd's ports a moment after it starts
    if rows.insert_card(gost, 0) and rows.insert_card(admin, 1):
        print("ready", flush=True)
        while True:
            time.sleep(3600)
    gost.remove()
    time.sleep(0.1)
sys.exit("the cards did not show up in PC/SC")

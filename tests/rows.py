#!/usr/bin/env python3
# Runs veltcheck as a user runs it, row by row of a table (tests/e2e/*.txt,
# tests/card/rows.txt: each explains its directives at its top), and compares
# its whole standard output and exit status, the files it leaves and the
# commands the cards got with the row's.
#
# usage: rows.py TABLE VELTCHECK [--campaign RUNS] | rows.py --readers VELTCHECK
# --campaign: the card table's cards then face RUNS random-card runs
# (VELT_FAULT_SEED picks them, else a fresh seed, named on failure).
# --readers: the reader walk on pcscd configurations of its own.
# Under VELT_VALGRIND the program of run: rows runs in memcheck: any memory
# error or definite leak changes its status.
import ctypes
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "sim"))
from sim_card import CMD, READERS, SimCard, checksum  # noqa: E402

FIXED_TIME = "01/02/03_04:05:06"  # in the lists the rows write
PCSCD_LOG = os.path.join(tempfile.gettempdir(), "veltcheck-pcscd.log")
STAMP = re.compile(r"TIME:(\d\d/\d\d/\d\d_\d\d:\d\d:\d\d);")
failures = []


def read_table(path):
    defines, rows = {}, []
    for line in open(path, encoding="utf-8"):
        key, colon, text = line.rstrip("\n").partition(":")
        text = text[1:] if text.startswith(" ") else text
        if key == "use":  # another table's defines
            defines.update(read_table(os.path.join(os.path.dirname(path), text))[0])
        elif key == "define":
            defines[text.split(" = ")[0]] = text.split(" = ", 1)[1]
        elif key == "row":
            rows.append((text, []))
        elif colon and key and not key.startswith("#"):
            rows[-1][1].append((key, text))
    return defines, rows


def rhash(path=None, data=""):
    run = subprocess.run(["rhash", "--printf=%{gost12-256}", path or "-"], input=data.encode("latin-1"),
                         capture_output=True, check=True)
    return run.stdout.decode().upper()


def check(what, got, want):
    got, want = str(got), str(want)
    if got != want:  # from a little before the first difference
        at = max(next((i for i, (a, b) in enumerate(zip(got, want)) if a != b), len(want)) - 40, 0)
        failures.append(f"{what}, from offset {at}:\n  got  {got[at:at + 300]!r}\n  want {want[at:at + 300]!r}")


class Expander:
    # A row's texts: escapes \r \n \0 \\ \xHH and the {...} expansions the
    # tables list; `taken` holds what only the run tells: its list's time
    # stamp and its new records' IVs and times.
    def __init__(self, defines, folder):
        self.defines, self.folder, self.taken = defines, folder, {"stamp": FIXED_TIME, "records": []}

    def __call__(self, text):
        self.header, self.used = 0, {}
        return self.into("", text)

    def into(self, out, text):
        i = 0
        while i < len(text):
            if text[i] == "\\":
                e = text[i + 1]
                out += chr(int(text[i + 2:i + 4], 16)) if e == "x" else {"r": "\r", "n": "\n", "0": "\0"}.get(e, e)
                i += 4 if e == "x" else 2
            elif text[i] == "{":
                end, depth = i + 1, 1
                while depth:
                    depth += {"{": 1, "}": -1}.get(text[end], 0)
                    end += 1
                out, i = self.brace(out, text[i + 1:end - 1]), end
            else:
                out, i = out + text[i], i + 1
        return out

    def brace(self, out, brace):
        op, _, arg = brace.partition(":")
        if re.match(r"\d+\*", brace):
            return out + self.into("", brace[brace.index("*") + 1:]) * int(brace[:brace.index("*")])
        arg = self.into("", arg)
        if op in ("iv", "cs", "time"):  # the next new record's
            self.used[op] = self.used.get(op, -1) + 1
            iv, stamp = self.taken["records"][self.used[op]]
            cs = checksum(bytes.fromhex(iv), len(iv) // 2).hex().upper()
            return out + (iv if op == "iv" else stamp if op == "time" else cs)
        if op == "header":
            self.header = len(out)
            return out + f"veltcheck 1.1.0.205;HASH OID:1.2.643.7.1.1.2.2; TIME:{self.taken['stamp']};\r\n"
        if op == "trailer":
            return out + "*" + rhash(data=out[self.header:] + "*")
        if op == "digest":
            return out + rhash(os.path.join(self.folder, arg))
        if op == "lower":
            return out + arg.lower()
        a, _, b = arg.partition(":")
        return self.into(out, self.defines[op].replace("$1", a).replace("$2", b))

    def take(self, output, sn=""):  # from the record of the card with that SN on
        stamp = STAMP.search(output)
        self.taken["stamp"] = stamp[1] if stamp else "(no time stamp)"
        at = max(output.find("#SN:" + sn + "("), 0)
        self.taken["records"] = re.findall(r"#IV:(\w+)#.*?#GEN_TIME:([^\r]*)", output[at:])


# The card bench: a pcscd of our own with vpcd's two readers, and PC/SC's view of them.
pcsc, DWORD = ctypes.CDLL("libpcsclite.so.1"), ctypes.c_ulong
EMPTY, PRESENT, INUSE = 0x10, 0x20, 0x100
daemon = None
events_at_insert = [-1, -1]  # PC/SC's count of each reader's card events when its card went in


class ReaderState(ctypes.Structure):
    _fields_ = [("reader", ctypes.c_char_p), ("user", ctypes.c_void_p), ("current", DWORD), ("event", DWORD),
                ("atr_len", DWORD), ("atr", ctypes.c_ubyte * 33)]


# The reader's state (its card events counted in the high word) once done(state); 0 after 5 s, or with no
# service or no such reader.
def wait_reader(reader, done=lambda state: True):
    context, state, found = ctypes.c_long(), ReaderState(READERS[reader].encode()), 0
    if pcsc.SCardEstablishContext(DWORD(0), None, None, ctypes.byref(context)):
        return 0
    for _ in range(50):
        if not found and pcsc.SCardGetStatusChange(context, DWORD(100), ctypes.byref(state), DWORD(1)) == 0:
            found = state.event if done(state.event) else 0
            state.current = state.event & ~2  # less SCARD_STATE_CHANGED
    pcsc.SCardReleaseContext(context)
    return found


# Puts card in once PC/SC has seen the reader's last card go (a card back
# before pcscd polled the reader would never be seen arriving), and waits
# until PC/SC sees it.
def insert_card(card, reader):
    before = events_at_insert[reader]
    empty = wait_reader(reader, lambda s: s & EMPTY and s >> 16 != before)
    inside = wait_reader(reader, lambda s: s & PRESENT) if empty and card.insert(reader) else 0
    events_at_insert[reader] = inside >> 16
    return inside != 0


# Unless a PC/SC service runs already (it would own vpcd's ports); false if
# it is not up. Its own session keeps a terminal's signals away; the death
# signal ends it with us, even killed.
def start_pcscd(*options, up=lambda: wait_reader(1)):
    global daemon
    if daemon or wait_reader(1) or subprocess.run(["pgrep", "-x", "pcscd"], capture_output=True).returncode == 0:
        return False
    events_at_insert[:] = [-1, -1]
    daemon = subprocess.Popen(["/usr/sbin/pcscd", "-f", *options], stdout=open(PCSCD_LOG, "w"),
                              stderr=subprocess.STDOUT, start_new_session=True,
                              preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGTERM))
    for _ in range(300):
        if daemon.poll() is None and up():
            return True
        time.sleep(0.05)
    return False


# SIGKILL as if it crashed; a SIGTERM not obeyed within 5 s is followed by SIGKILL.
def stop_pcscd(sig=signal.SIGTERM):
    global daemon
    if daemon:
        daemon.send_signal(sig)
        try:
            daemon.wait(5)
        except subprocess.TimeoutExpired:
            daemon.kill()
            daemon.wait()
    daemon = None


def set_up(text):  # "READER [T0] [61] [gost] [admin] [ssn] [ssn2] [sn=HEX] [ssn=CODE:HEX]"
    words, aids = text.split(), {"gost": "AidGost2", "admin": "AidAdmin", "ssn": "AidSsn", "ssn2": "AidSsnAlt"}
    given, chosen = dict(w.split("=") for w in words if "=" in w), {}  # the rest as SimCard has it
    if "sn" in given:
        chosen["sn"] = bytes.fromhex(given["sn"])
    if "ssn" in given:
        chosen.update(ssn_code=int(given["ssn"][:2], 16), ssn=bytes.fromhex(given["ssn"][3:]))
    return SimCard([CMD[aids[w]] for w in words if w in aids], "T0" in words, "61" in words, **chosen)


def remove(cards):
    for card in cards.values():
        card.remove()
    return {}


def sent(card):
    return " ".join(c.hex().upper() if c else "reset" for c, _, _ in card.log)


def listing(folder):
    return {os.path.relpath(os.path.join(d, n), folder) for d, dirs, files in os.walk(folder) for n in dirs + files}


# Runs a row on cards by reader (those of an earlier row are kept, put back if
# pulled out); with chaos (faults put before the last card's own) only up to
# its first run, unchecked. Gives the first run's output and status.
def run_row(defines, name, steps, cards, chaos=None):
    folder = tempfile.mkdtemp(prefix="veltcheck-rows-")
    try:
        return run_steps(Expander(defines, folder), name, steps, cards, chaos)
    finally:
        shutil.rmtree(folder)


def run_steps(expand, name, steps, cards, chaos):
    folder, faults, last, first, keys = expand.folder, {}, 0, None, [key for key, _ in steps]
    if "card" not in keys:  # the files every command-line row starts with
        os.mkdir(os.path.join(folder, "sub"))
        for file, data in {"a.bin": b"alpha\n", "b.bin": bytes((i * 31 + 5) & 0xFF for i in range(70000)),
                           "sub/c.bin": b"012345678901234567890123456789012345678901234567890123456789012",
                           "x*y": b"", "p$q": b""}.items():
            open(os.path.join(folder, file), "wb").write(data)
    out, want, before, named, wanted_sent = "", "", None, [], {}

    def finish():  # a run creates no file its after: lines do not name; the commands the cards got
        for reader, text in wanted_sent.items():
            expand.take(out, cards[reader].sn.hex().upper())
            check(f"{name}: sent{reader}", sent(cards[reader]), expand(text))
        for created in sorted(listing(folder) - before - set(named) if before is not None else []):
            failures.append(f"{name}: the run created {created}")
        wanted_sent.clear()
        return None, []

    for key, text in steps:
        path = os.path.join(folder, re.split(" = | ", text)[0])
        value = text.split(" = ", 1)[1] if " = " in text else ""
        if key not in ("out", "status", "after") and not key.startswith("sent"):
            before, named = finish()
        if key == "card":
            last = int(text[0])
            cards[last] = cards.get(last) or set_up(text)
        elif key == "answer":  # PREFIX[/N] -> ANSWER
            prefix, nth = (expand(text.split(" -> ")[0]) + "/0").split("/")[:2]
            faults.setdefault(last, []).append((bytes.fromhex(prefix), expand(text.split(" -> ")[1]), int(nth)))
        elif key == "pcscd":  # "N SIGNAL": pcscd gets SIGNAL while the card holds back its Nth answer
            faults.setdefault(last, []).append((b"", "hold", int(text.split()[0])))
            cards[last].on_hold = lambda sig=int(text.split()[1]): stop_pcscd(sig)
        elif key in ("file", "list"):
            expand.taken["stamp"] = FIXED_TIME
            body = expand(value) + ("*" if key == "list" else "")
            open(path, "wb").write((body + (rhash(data=body) if key == "list" else "")).encode("latin-1"))
        elif key == "fifo":
            os.mkfifo(path)
        elif key in ("poke", "cut"):
            data, n = bytearray(open(path, "rb").read()), int(text.split()[1])
            if key == "poke":
                data[n] ^= 1
            open(path, "wb").write(data if key == "poke" else data[:len(data) - n])
        elif key in ("run", "shell"):
            faults[last] = (chaos if chaos is not None and first is None else []) + faults.get(last, [])
            for reader, card in cards.items():
                card.script(faults.get(reader, []))
                if not card.inside() and not insert_card(card, reader):
                    return failures.append(f"{name}: card {reader} not seen by PC/SC")
            before, want = listing(folder), ""
            out, status = shell(("veltcheck " if key == "run" else "") + expand(text), folder, "card" in keys, key)
            first = first or (out, status)
            if "pcscd" in keys and not (remove(cards) or start_pcscd()):
                failures.append(f"{name}: pcscd did not come back")
            if "card" in keys and (wait_reader(0) | wait_reader(1)) & INUSE:
                failures.append(f"{name}: a card left held")
            if chaos is not None:
                return first
        elif key == "out":
            want += text
        elif key == "status":
            expand.take(out)
            check(f"{name}: output", out, expand(want))
            check(f"{name}: status", status, int(text))
        elif key.startswith("sent"):
            wanted_sent[int(key[4])] = (wanted_sent.get(int(key[4]), "") + " " + text).strip()
        elif key == "after":  # NAME = TEXT, NAME, NAME absent
            named.append(re.split(" = | ", text)[0])
            check(f"{name}: {named[-1]} there", os.path.exists(path), not text.endswith(" absent"))
            if os.path.exists(path) and " = " in text + " ":
                got = open(path, "rb").read().decode("latin-1")
                expand.take(got)
                check(f"{name}: {named[-1]}", got, expand(value))
        else:
            raise KeyError(f"{name}: unknown directive {key}")
    finish()
    return first


# Runs command with bash in folder, veltcheck standing for the program (in
# memcheck for run: rows under VELT_VALGRIND) and procedure for the card
# procedures' own runner; a row with no card runs with no PC/SC service.
def shell(command, folder, cards, key):
    program = f"exec -a veltcheck '{VELTCHECK}' \"$@\""
    if key == "run" and os.environ.get("VELT_VALGRIND"):
        program = (f"PATH='{os.path.dirname(VELTCHECK)}':$PATH exec valgrind --quiet --error-exitcode=99 "
                   "--leak-check=full --errors-for-leak-kinds=definite veltcheck \"$@\"")
    service = "" if cards else "export PCSCLITE_CSOCK_NAME=/nonexistent/pcscd.comm\n"
    procedure = os.path.join(os.path.dirname(VELTCHECK), "tests", "card_procedure")
    script = f"{service}veltcheck() {{ {program}; }}\nprocedure() {{ exec '{procedure}' \"$@\"; }}\n"
    script += f"cd '{folder}' || exit 99\n{command}\n"
    try:
        p = subprocess.run(["bash", "-c", script], stdout=subprocess.PIPE, timeout=300)
    except subprocess.TimeoutExpired:
        return "(hung)", -1
    return p.stdout.decode("latin-1"), p.returncode if p.returncode >= 0 else 1000 - p.returncode


# Whether the card itself answered the last command with that header and no
# data (data 0), the SN (1) or other data (2), GET RESPONSEs included.
def genuine(log, sn, header, data):
    picked = own = False
    for c, _, forced in log:
        if c[1:2] != CMD["GetResponse"][1:2]:
            picked = c[:4] == header and (not c[5:] if data == 0 else bool(c[5:]) and (c[5:] == sn) == (data == 1))
        own = not forced if picked else own
    return own


# The random card: a table row's card whose every answer may be a fault,
# pulled out at any command. Whatever it does, veltcheck ends by itself with
# status 0 or 255 (and "Error 0" with 255), leaves the reader free, the card
# then works again as its row says, and no "Ok!" is printed that the row does
# not print, nor without the card's own answers that justify it.
def campaign(defines, rows, runs):
    seed = int(os.environ.get("VELT_FAULT_SEED") or random.randrange(2 ** 32))
    # Rows of one card and no faults of their own (the campaign's faults would change their counting) that
    # run the program first.
    alone = [(n, s) for n, s in rows if sum(k in ("card", "pcscd", "answer") for k, _ in s) == 1
             and next(k for k, _ in s if k in ("run", "shell")) == "run"]
    cards = {}
    for run in range(runs):
        rng = random.Random(seed * 1000003 + run)
        if run % 5 == 0:  # every fifth run another row's card
            cards, row = remove(cards), rng.choice(alone)
        chaos, percent = [], rng.choice([100, 50, 20, 8])
        for n in range(1, 41):
            some = rng.randbytes(1 + rng.randrange(300) if rng.randrange(2) else rng.choice([2, 8, 10, 32])).hex()
            if rng.randrange(100) < percent:
                kinds = ["out", some, some + "9000", "61" + some[:2], "6C" + some[:2], "9000"]
                chaos.append((b"", rng.choice(kinds), n))
        before = len(failures)
        out, status = run_row(defines, row[0], row[1], cards, chaos) or ("", -1)
        card = next(iter(cards.values()))
        log = card.log
        good, _ = run_row(defines, row[0], row[1], cards) or ("", -1)
        if out.endswith("\r\nError 0\r\n") != (status == 255) or status not in (0, 255):
            failures.append(f"status {status}")
        # cs_init rests on the card's stored value and its checksum of its SN;
        # a record, on its PCS and its checksum of the IV.
        admin = "Admin" in out
        for ok, init in (("cs_init - Ok!", True), ("cs_pcs_file - Ok!", False)):
            value = CMD["AdminChecksum" if admin else "Gost2GetInitChecksum" if init else "Gost2GetPcs"]
            command = CMD["AdminChecksum" if admin else "Gost2Checksum"]
            if ok in out and not (ok in good and genuine(log, card.sn, value, 0) and genuine(log, card.sn, command,
                                                                                              2 - init)):
                failures.append(f"an unjustified {ok}")
        if len(failures) > before:
            return failures.append(f"VELT_FAULT_SEED={seed}, run {run}, row {row[0]}\noutput: {out!r}\nexchanges:\n" +
                                   "\n".join(f"  {c.hex()} -> {a.hex()}{' (forced)' * f}" for c, a, f in log))
    remove(cards)
    print(f"{runs} random-card runs, VELT_FAULT_SEED={seed}")


# The reader walk on a pcscd with a configuration of its own: with no reader,
# both card modes say so, close the enumeration and succeed; with sixteen
# readers whose names make a list of more than 2048 characters (vpcd gives
# each configured one two slots), every reader is visited, in PC/SC's order.
def readers():
    config, pad = tempfile.mkdtemp(), "0" * 112
    walk = lambda mode="-cs": shell("veltcheck " + mode, config, True, "")  # noqa: E731
    wants = {"-cs": "\r\napplet checksum mode:\r\n", "-ta": "\r\nVeltora Admin checksum mode:\r\n"}
    start_pcscd("-c", config, up=lambda: walk()[0].endswith("empty\r\n"))
    for mode, banner in wants.items():
        want = banner + "\r\nReaders list is empty\r\n"
        check(f"no reader, {mode}", walk(mode), (want, 0))
    stop_pcscd()
    for i in range(8):
        open(os.path.join(config, f"vpcd{i}"), "w").write(
            f'FRIENDLYNAME "Reader {i} {pad}"\nDEVICENAME /dev/null:0x{36100 + 2 * i:X}\n'
            f"LIBPATH /usr/lib/pcsc/drivers/serial/libifdvpcd.so\nCHANNELID 0x{36100 + 2 * i:X}\n")
    lines = sorted(f" Reader {i} {pad} 00 0{s} : card not found\r\n" for i in range(8) for s in (0, 1))
    start_pcscd("-c", config, up=lambda: walk()[0].count("not found") == 16)
    out, status = walk()
    check("sixteen readers", (out[:27], sorted(out[27:].splitlines(True)), status), (wants["-cs"] + "\r\n", lines, 0))
    stop_pcscd()
    shutil.rmtree(config)


if __name__ == "__main__":
    VELTCHECK = os.path.abspath(sys.argv[-1] if sys.argv[1] == "--readers" else sys.argv[2])
    defines, rows = read_table(sys.argv[1]) if sys.argv[1] != "--readers" else ({}, [])
    if any(key == "card" for _, steps in rows for key, _ in steps) and not start_pcscd():
        sys.exit("no pcscd of ours: another PC/SC service? " + PCSCD_LOG)
    try:
        for name, steps in rows:
            cards = {}
            run_row(defines, name, steps, cards)
            remove(cards)
        if "--campaign" in sys.argv and not failures:
            campaign(defines, rows, int(sys.argv[sys.argv.index("--campaign") + 1]))
        if sys.argv[1] == "--readers":
            readers()
    finally:
        stop_pcscd()
    print("\n".join(failures + [f"{len(rows)} rows: {len(failures)} failures"]))
    sys.exit(1 if failures else 0)

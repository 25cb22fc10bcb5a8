# A simulated Veltora card for vpcd's virtual readers "Virtual PCD 00 00" and
# "00 01" (TCP 35963, 35964): a thread that answers the program's commands,
# whose bytes it reads from the program's own src/card/commands.h.
import os
import re
import socket
import threading

HEADER = os.path.join(os.path.dirname(__file__), "..", "..", "src", "card", "commands.h")
CMD = {name: bytes(int(b, 16) for b in re.findall(r"0x(\w\w)", body))
       for name, body in re.findall(r"constexpr \w+ k(\w+)(?: = |)\{([^}]*)\}", open(HEADER).read())}
READERS = ["Virtual PCD 00 00", "Virtual PCD 00 01"]


# Every card's checksum: FNV-1a of its secret 5EC2E7 and the data, then one round per output byte.
def checksum(data, n):
    h = 2166136261
    for b in b"\x5E\xC2\xE7" + bytes(data):
        h = (h ^ b) * 16777619 & 0xFFFFFFFF
    out = bytearray()
    for _ in range(n):
        h = (h ^ 0x5A) * 16777619 & 0xFFFFFFFF
        out.append(h >> 24)
    return bytes(out)


# What the card is, changed while it is out; answer61: 61 xx to each command
# with data, the data by GET RESPONSE. `script` sets its faults from now on:
# (prefix, answer, nth) forces the answer (hex, or "out": pulled out while the
# reader waits; "hold": on_hold is called and no answer comes) on the commands
# starting with prefix, or on the nth of them only (from 1); the log of
# (command, answer, forced) starts again too.
class SimCard:
    def __init__(self, applets=(), t0=False, answer61=False, sn=bytes(range(1, 9)), ssn_code=0xA0, ssn=b""):
        self.applets, self.t0, self.answer61, self.sn = applets, t0, answer61, sn
        self.ssn_code, self.ssn = ssn_code, ssn
        self.sock, self.thread, self.lock, self.on_hold = None, None, threading.Lock(), None
        self.script([])

    def script(self, faults):
        with self.lock:
            self.faults, self.hits, self.log = list(faults), [0] * len(faults), []

    def insert(self, reader):
        self.remove()
        try:
            self.sock = socket.create_connection(("127.0.0.1", 35963 + reader))
        except OSError:
            return False
        self.selected, self.pending = b"", b""
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()
        return True

    def remove(self):
        if self.sock:
            self.shutdown()  # wakes the thread's read
            self.thread.join()
            self.sock.close()
        self.sock = None

    def shutdown(self):
        try:
            self.sock.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # out already

    def inside(self):
        return self.thread is not None and self.thread.is_alive()

    def read(self, n):
        # vpcd writes a message's length and payload apart: acking at once
        # keeps Nagle from holding the payload for the delayed-ACK time.
        try:
            self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
            data = self.sock.recv(n, socket.MSG_WAITALL)
        except OSError:
            return None
        return data if len(data) == n else None

    def send(self, answer):
        try:
            return self.sock.send(len(answer).to_bytes(2, "big") + answer) > 0
        except OSError:
            return False

    def run(self):
        while (size := self.read(2)) and (command := self.read(int.from_bytes(size, "big"))) is not None:
            # One byte: 0 power off, 1 on, 2 reset (each restarts the card), 4 the ATR: T=0 needs no
            # interface bytes, T=1 alone its check byte.
            if len(command) == 1:
                if command[0] != 4:
                    self.selected = self.pending = b""
                with self.lock:
                    self.log += [(b"", b"", False)] if command[0] == 2 else []
                if command[0] == 4 and not self.send(bytes.fromhex("3B00" if self.t0 else "3B800181")):
                    break
                continue
            forced = self.fault(command)
            if forced == "hold" and self.on_hold:
                self.on_hold()
            answer = b"" if forced in ("out", "hold") else bytes.fromhex(forced) if forced else self.respond(command)
            with self.lock:
                self.log.append((command, answer, bool(forced)))
            if forced != "hold" and not (answer and self.send(answer)):
                break
        self.shutdown()

    def fault(self, command):  # the first fault that picks the command; every matching one counts it
        with self.lock:
            matching = [i for i, (prefix, _, _) in enumerate(self.faults) if command.startswith(prefix)]
            for i in matching:
                self.hits[i] += 1
            return next((self.faults[i][1] for i in matching if self.faults[i][2] in (0, self.hits[i])), "")

    def respond(self, command):
        pending, self.pending = self.pending, b""
        if pending and command[1] == CMD["GetResponse"][1]:
            return pending
        answer = self.own(command)
        if self.answer61 and len(command) > 5 and len(answer) > 2:
            self.pending, answer = answer, bytes([0x61, len(answer) - 2])
        return answer

    def own(self, c):
        data, ok = c[5:], b"\x90\x00"
        if c[:4] == CMD["SelectByName"] and len(c) == 13:
            found = data in self.applets
            self.selected = (CMD["AidSsn"] if data == CMD["AidSsnAlt"] else data) if found else b""
            return (b"\x6F\x0B\x84" + self.sn if data == CMD["AidAdmin"] else b"") + ok if found else b"\x6A\x82"

        def picked(applet, header, length=0):  # length 0: more than 5, with data
            return self.selected == CMD[applet] and c[:4] == CMD[header] and (
                len(c) == length or not length and len(c) > 5)
        value = (self.ssn + bytes(256))[:c[4]] if len(c) == 5 else b""
        answers = [(picked("AidSsn", "SsnLengthCode", 5), bytes([1, 0, self.ssn_code, 0])),
                   (picked("AidSsn", "SsnData", 5), value),
                   (picked("AidGost2", "Gost2GetSn", 5), b"\x00\x0A" + self.sn),  # the SN ends the answer
                   (picked("AidGost2", "Gost2GetInitChecksum", 5), checksum(self.sn, 32)),
                   (picked("AidGost2", "Gost2GetPcs", 5), checksum(b"PCS", 32)),
                   (picked("AidGost2", "Gost2Checksum"), checksum(data, 32)),
                   (picked("AidAdmin", "AdminChecksum", 4), checksum(self.sn, 8)),
                   (picked("AidAdmin", "AdminChecksum"), checksum(data, 8)),
                   (picked("AidGost2", "Gost2Seed", 5) or picked("AidAdmin", "AdminSeed", 5),
                    checksum(b"R%d" % len(self.log), 32))]  # another each time
        return next((a + ok for hit, a in answers if hit), b"\x6D\x00")  # 6D00: unknown here

"""Peers that mean harm, written from the pages alone, against a running gateway. Each case tells what the gateway did, how
long another link waited for its answers meanwhile, and what the gateway held before, at most and afterwards.

    hostile_peers.py ... [--seconds S] [--case NAME]      S seconds a case, 1 by itself; the table comes at the end

What is allowed here is wide, since the machine may be busy; what was found broken once went far beyond it.
"""
import contextlib
import errno
import itertools
import json
import multiprocessing
import pathlib
import resource
import selectors
import socket
import statistics
import threading
import time

import gvx_e2e as e2e

TOTAL = 64 << 20            # GVX_LINK_MEMORY_TOTAL of the gateway under attack
ROOM_KIB = 64 << 10         # beside that total
WORST_SECONDS = 3.0         # that another link may wait once
P99_SECONDS = 1.0
PORT_ANSWER = e2e.PORT_QUERY + e2e.RESPONSE
READ_LIMIT = 1 << 20


def registration(link_id):
    return e2e.frame(e2e.REGISTER, 1, e2e.TAG_JSON, json.dumps({"LinkID": link_id}).encode())


def connect(port, **options):
    sock = socket.socket()
    if "receive_buffer" in options:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, options["receive_buffer"])
    sock.settimeout(20)
    sock.connect(("127.0.0.1", port))
    return sock


class Pushers:
    """Many peers in one process, each of which registers and then sends its bytes as fast as they are taken."""

    def __init__(self, port, first, reads=True):
        self.port, self.first, self.reads, self.again = port, first, reads, False
        self.selector, self.closed, self.names = selectors.DefaultSelector(), 0, itertools.count(1)

    def add(self, kind, payload):
        sock = connect(self.port, **({} if self.reads else {"receive_buffer": 4096}))
        sock.setblocking(False)
        begin = registration(f"{kind}#{self.first}_{next(self.names)}")
        state = {"kind": kind, "queue": begin, "at": 0, "payload": payload}
        events = selectors.EVENT_WRITE | (selectors.EVENT_READ if self.reads else 0)
        self.selector.register(sock, events, state)

    def run(self, until):
        while time.monotonic() < until and self.selector.get_map():
            for key, events in self.selector.select(0.05):
                try:
                    self.serve(key.fileobj, key.data, events)
                except OSError as fault:
                    if fault.errno in (errno.EAGAIN, errno.EWOULDBLOCK):
                        continue
                    self.drop(key)
                    if self.again and not self.link_anew(key.data):
                        return

    def link_anew(self, state):
        """False when there is no gateway any more."""
        with contextlib.suppress(OSError):
            self.add(state["kind"], state["payload"])
            return True
        return False

    def serve(self, sock, state, events):
        if events & selectors.EVENT_READ and not sock.recv(65536):
            raise OSError(errno.ECONNRESET, "closed")
        if events & selectors.EVENT_WRITE:
            state["at"] += sock.send(memoryview(state["queue"])[state["at"]:state["at"] + READ_LIMIT])
            if state["at"] == len(state["queue"]):
                state["queue"], state["at"] = state["payload"], 0
                if not state["payload"]:
                    self.selector.modify(sock, selectors.EVENT_READ, state)

    def drop(self, key):
        self.closed += 1
        self.selector.unregister(key.fileobj)
        key.fileobj.close()


def flood(port, first, count, kind, payload, seconds, reads=True, again=True):
    pushers = Pushers(port, first, reads)
    for _ in range(count):
        pushers.add(kind, payload)
    pushers.again = again
    pushers.run(time.monotonic() + seconds)
    return pushers.closed


# What is sent. A body of a request is 1 MiB at most.

def xml_frame(text):
    return e2e.frame(e2e.DEL_DEV, 7, e2e.TAG_XML, text, trans=b"hostile")


def many_attributes(count):
    return xml_frame(b"<Content %s/>" % b" ".join(b'a%d=""' % number for number in range(count)))


def many_elements():
    return xml_frame(b"<Content>" + b"<a/>" * 250000 + b"<DevCode>X</DevCode></Content>")


def deep_elements():
    return xml_frame(b"<a>" * 250000)


def long_text():
    return xml_frame(b"<Content>" + b"&amp;\n" * 170000 + b"<DevCode>NOBODY</DevCode></Content>")


def heavy_json():
    return e2e.frame(e2e.START_STREAM, 7, e2e.TAG_JSON, b'{"a":[' + b"[0]," * 250000 + b'0],"DevCode":"X"}')


def forged_types():
    kinds = (0xFFFA, 0xFFFB, 0xFFFC, 0xFFFD, 0xFFFE, 0xFFFF, 0xDC11)
    return b"".join(e2e.frame(kind, 7, trans=b"hostile") for kind in kinds) * 20


def forged_ports(port):
    bodies = (f"<Content><LinkID>SCU#{number}</LinkID><MUPort>{port}</MUPort></Content>".encode() for number in range(50))
    return b"".join(e2e.frame(PORT_ANSWER, 7, e2e.TAG_XML, body, trans=b"hostile") for body in bodies)


def almost_whole():
    return e2e.frame(e2e.DEL_DEV, 7, length=4 << 20) + b"x" * ((4 << 20) - 116 - 1)


# Cases. Each returns a word about what the gateway did.

def by_flood(count, kind, payload, **more):
    def case(attack):
        processes = 2
        closed = attack.in_processes(processes, lambda first: flood(
            attack.port, first, count // processes, kind, payload() if callable(payload) else payload, attack.seconds,
            **more))
        return f"{count} peers, {sum(closed)} closed"
    return case


def trickle(attack):
    payload = xml_frame(b"<Content><DevCode>NOBODY</DevCode></Content>")
    peers = [connect(attack.port) for _ in range(100)]
    for number, peer in enumerate(peers):
        peer.sendall(registration(f"SCU#trickle{number}"))
    end = time.monotonic() + attack.seconds
    sent = 0
    while time.monotonic() < end:
        for peer in peers:
            with contextlib.suppress(OSError):
                peer.sendall(payload[sent % len(payload):sent % len(payload) + 1])
        sent += 1
    for peer in peers:
        peer.close()
    return f"100 peers, {sent} bytes each"


def forged_internal(attack):
    by_flood(10, "SCU", forged_types())(attack)
    lines = attack.gateway.lines("which never travels on a link")
    e2e.check(lines, "nothing tells of the forged types")
    e2e.check(not attack.gateway.lines("cmd[0xffff]"), "a forged type was served")
    return f"{len(lines)} lines, none served"


def ports_nobody_asked_for(attack):
    with socket.create_server(("127.0.0.1", 0)) as unit:
        unit.settimeout(0.2)
        scu = connect(attack.port)
        scu.sendall(registration("SCU#1"))
        by_flood(10, "SCU", forged_ports(unit.getsockname()[1]))(attack)
        scu.close()
        with contextlib.suppress(socket.timeout):
            unit.accept()
            raise e2e.Failure("the gateway connected where a peer wanted it to")
    return "no connection made"


def silent_main_services(attack):
    """Their openings wait for answers that never come; another peer's events are served meanwhile."""
    peers = []
    for number in range(20):
        peers.append(connect(attack.port))
        peers[-1].sendall(registration(f"GVX#silent{number}"))
    begin = time.monotonic()
    with e2e.Peer.linked(attack.port, "IMGU#7").sock:
        e2e.wait_until(lambda: attack.gateway.lines("GVX open link to IMGU", "IMGU#7"), 20, "the event of another peer")
    took = time.monotonic() - begin
    e2e.check(took < WORST_SECONDS * attack.slow, f"another peer's opening was served after {took:.1f} s")
    time.sleep(attack.seconds)
    for peer in peers:
        peer.close()
    return f"another's opening after {took * 1000:.0f} ms"


def frames_ahead_of_the_opening(attack):
    """Main services that send 7 MiB at once and leave, with an identifier of its own each time."""
    payload = b"".join(e2e.frame(e2e.DEL_DEV, 7, e2e.TAG_XML, b"<Content>%s</Content>" % (b"x" * 900000)) for _ in range(8))
    closed = attack.in_processes(2, lambda first: hit_and_run(attack.port, f"GVX#ahead{first}_", payload, attack.seconds))
    return f"{sum(closed)} links"


def hit_and_run(port, prefix, payload, seconds):
    end, count = time.monotonic() + seconds, 0
    while time.monotonic() < end:
        with contextlib.suppress(OSError), connect(port) as peer:
            peer.sendall(registration(f"{prefix}{count}") + payload)
        count += 1
    return count


def one_identifier_for_many(attack):
    counts = attack.in_processes(2, lambda first: hit_and_run(attack.port, "IMGU#same", b"", attack.seconds))
    return f"{sum(counts)} registrations"


def a_second_main_service_leaves(attack):
    second = e2e.Peer.linked(attack.port, "GVX#second")
    time.sleep(0.3)
    second.sock.close()
    attack.main_service_is_answered()
    return "the first is served again"


def silent_peers(attack):
    peers = [connect(attack.port) for _ in range(attack.many(300, 1000))]
    time.sleep(attack.seconds)
    for peer in peers:
        peer.close()
    return f"{len(peers)} peers"


def many_registrations(attack):
    count = attack.many(600, 10000)
    attack.in_processes(2, lambda first: [hit_and_run(attack.port, f"SCU#{first}_{number}_", b"", 0.0001)
                                          for number in range(count // 2)])
    return f"{count} registrations"


CASES = {
    "20,000 attributes": by_flood(30, "SCU", lambda: many_attributes(20000)),
    "100,000 attributes": by_flood(30, "SCU", lambda: many_attributes(98000)),
    "250,000 elements": by_flood(30, "SCU", many_elements),
    "250,000 levels": by_flood(30, "SCU", deep_elements),
    "1 MiB of entities": by_flood(30, "SCU", long_text),
    "heavy JSON": by_flood(30, "SCU", heavy_json),
    "small requests": by_flood(30, "SCU", xml_frame(b"<Content><DevCode>NOBODY</DevCode></Content>") * 500),
    "almost whole frames": by_flood(250, "SCU", almost_whole, again=False),
    "keep-alives, never read": by_flood(30, "SCU", e2e.frame(e2e.KEEPALIVE, 7) * 500, reads=False),
    "trickles": trickle,
    "forged types": forged_internal,
    "ports nobody asked for": ports_nobody_asked_for,
    "silent main services": silent_main_services,
    "frames ahead of the opening": frames_ahead_of_the_opening,
    "one identifier for many": one_identifier_for_many,
    "a second main service": a_second_main_service_leaves,
    "silent peers": silent_peers,
    "registrations": many_registrations,
}
# Where hostile main services are linked, answers leave by their links: the other link asks with keep-alives.
ASKED_BY_KEEPALIVE = ("silent main services", "frames ahead of the opening", "a second main service")


# The other link

def probe(port, device, commands, results):
    """Asks without end in a process of its own, and tells the times between two words of its master."""
    peer = e2e.Peer.linked(port, "GVX#000")
    if device is not None:
        peer.add_device(device, {"media": "demo"})
    body = json.dumps({"DevCode": device, "ServiceID": "none"}).encode()
    results.send("ready")
    times, by_keepalive = [], False
    while True:
        if commands.poll():
            command = commands.recv()
            if command == "end":
                return
            if command == "tell":
                results.send(times)
            by_keepalive, times = command == "keepalive", []
        begin = time.monotonic()
        if by_keepalive:
            peer.keeps_alive(60)
        else:
            peer.request(e2e.STOP_STREAM, e2e.TAG_JSON, body)
        times.append(time.monotonic() - begin)
        time.sleep(0.002)


class Attack:
    """A gateway under attack, and another link to it that is watched."""

    def __init__(self, options, gateway):
        self.gateway, self.port, self.slow, self.seconds = gateway, gateway.port, options.slow, options.seconds
        self.long = options.seconds > 3
        self.peak_kib, self.watching = 0, True
        self.commands, far_commands = multiprocessing.Pipe()
        self.results, far_results = multiprocessing.Pipe()
        self.prober = multiprocessing.Process(target=probe, args=(self.port, "OTHER", far_commands, far_results))
        self.prober.start()
        self.result(60)
        self.watcher = threading.Thread(target=self.watch_memory, daemon=True)
        self.watcher.start()

    def many(self, few, many):
        return many if self.long else few

    def result(self, seconds):
        e2e.check(self.results.poll(seconds * self.slow), "the other link is not answered any more")
        return self.results.recv()

    def watch_memory(self):
        while self.watching:
            with contextlib.suppress(OSError, IndexError):
                self.peak_kib = max(self.peak_kib, self.gateway.memory_kib())
            time.sleep(0.02)

    def in_processes(self, count, work):
        """What work(number) gives in as many processes."""
        pipes = []
        for number in range(count):
            near, far = multiprocessing.Pipe()
            process = multiprocessing.Process(target=lambda far=far, number=number: far.send(work(number)))
            process.start()
            pipes.append((near, process))
        answers = []
        for near, process in pipes:
            answers.append(near.recv() if near.poll(120 * self.slow) else 0)
            process.join(10)
        return answers

    def main_service_is_answered(self):
        self.commands.send("requests")
        time.sleep(0.2)
        self.commands.send("tell")
        e2e.check(self.result(60), "the main service is not answered")

    def carry_out(self, name, case):
        before = self.peak_kib = self.gateway.memory_kib()
        self.commands.send("keepalive" if name in ASKED_BY_KEEPALIVE else "requests")
        did = case(self)
        self.commands.send("tell")
        times = sorted(self.result(60))
        peak = self.peak_kib
        time.sleep(0.2)
        row = {"case": name, "did": did, "asked": len(times), "worst": times[-1], "p99": times[len(times) * 99 // 100],
               "median": statistics.median(times), "before": before, "peak": peak, "after": self.gateway.memory_kib()}
        e2e.check(row["worst"] <= WORST_SECONDS * self.slow, f"{name}: another link waited {row['worst']:.2f} s")
        e2e.check(row["p99"] <= P99_SECONDS * self.slow, f"{name}: another link waited {row['p99']:.2f} s at p99")
        if self.slow == 1:
            e2e.check(peak - before <= (TOTAL >> 10) + ROOM_KIB, f"{name}: the gateway grew by {peak - before} KiB")
        return row

    def end(self):
        self.commands.send("end")
        self.prober.join(20)
        self.watching = False
        self.watcher.join()


def print_table(rows):
    print(f"{'case':28} {'what the gateway did':34} {'asked':>6} {'median':>8} {'p99':>8} {'worst':>8}   memory MiB: before, "
          "peak, after")
    for row in rows:
        print(f"{row['case']:28} {row['did']:34} {row['asked']:6} {row['median'] * 1000:6.1f}ms {row['p99'] * 1000:6.1f}ms "
              f"{row['worst'] * 1000:6.1f}ms   {row['before'] / 1024:.0f}, {row['peak'] / 1024:.0f}, {row['after'] / 1024:.0f}")


def descriptors(gateway):
    return len(list(pathlib.Path(f"/proc/{gateway.process.pid}/fd").iterdir()))


def meet_hostile_peers(options, folder, stack):
    # The descriptors of a thousand peers.
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(8192, limit), limit))
    video, _ = e2e.make_clip(folder, seconds=1)
    gateway = e2e.start_gateway(options, folder, stack, {"demo": {"video": str(video), "fps": 25}}, settings={
        "GVX_LINK_MEMORY_TOTAL": TOTAL, "GVX_LINK_REGISTER_TIME": 2000, "GVX_LINK_FRAME_TIME": 2000,
        "GVX_LOG_LEVEL": 6})
    with e2e.Peer.linked(gateway.port, "OMU#warm").sock:
        pass
    attack = Attack(options, gateway)
    stack.callback(attack.prober.kill)
    held = descriptors(gateway)
    rows = []
    try:
        for name, case in CASES.items():
            if options.case in ("", name):
                rows.append(attack.carry_out(name, case))
    finally:
        print_table(rows)
    e2e.wait_until(lambda: descriptors(gateway) <= held + 2, 40 * options.slow, "the descriptors are back")
    stop_under_fire(attack, gateway)


def stop_under_fire(attack, gateway):
    flooder = multiprocessing.Process(target=flood, args=(gateway.port, 9, 10, "SCU", long_text(), 20))
    flooder.start()
    time.sleep(0.5)
    attack.end()
    try:
        print(f"ended within {gateway.stop():.2f} s while 10 peers flooded it")
    finally:
        flooder.kill()
        flooder.join()


if __name__ == "__main__":
    multiprocessing.set_start_method("fork")
    e2e.main(meet_hostile_peers)

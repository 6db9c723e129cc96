"""Peers that mean harm, written from the pages alone, against a running gateway. Each case tells what the gateway did, how
long another link waited for its answers meanwhile, and what the gateway held before, at most and afterwards.

    hostile_peers.py ... [--seconds S] [--case NAME]      S seconds a case, 1 by itself; the table comes at the end

What is allowed here is wide, since the machine may be busy; what was found broken once went far beyond it.
"""
import collections
import contextlib
import errno
import itertools
import json
import multiprocessing
import pathlib
import resource
import selectors
import socket
import ssl
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
MADE_LATER = 10             # descriptors: reactors ahead of their need, the store of alarms; links come by the hundred


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
    for number in range(80):  # more than openings wait on threads of their own
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
    # Until then answers go to the link that was closed, and a request would wait for ever.
    e2e.wait_until(lambda: attack.gateway.lines("GVX#second", "serves instead"), 30 * attack.slow, "the first is recorded")
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

def probe(port, device, wrap, commands, results):
    """Asks without end in a process of its own, and tells the times between two words of its master."""
    peer = e2e.Peer.linked(port, "GVX#000", wrap=wrap)
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
            results.send(times)  # to the other words, that the master may go on
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

    def __init__(self, options, gateway, wrap=lambda sock: sock):
        self.gateway, self.port, self.slow, self.seconds = gateway, gateway.port, options.slow, options.seconds
        self.long = options.seconds > 3
        self.peak_kib, self.watching = 0, True
        self.commands, far_commands = multiprocessing.Pipe()
        self.results, far_results = multiprocessing.Pipe()
        self.prober = multiprocessing.Process(target=probe, args=(self.port, "OTHER", wrap, far_commands, far_results))
        self.prober.start()
        self.result(60)
        self.watcher = threading.Thread(target=self.watch_memory, daemon=True)
        self.watcher.start()

    def many(self, few, many):
        return many if self.long else few

    def ask(self, word, seconds=60):
        """Tells the other link how to ask from now on, and gives the times that it waited until now."""
        self.commands.send(word)
        return self.result(seconds)

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
        self.ask("requests")
        time.sleep(0.2)
        e2e.check(self.ask("requests"), "the main service is not answered")

    def carry_out(self, name, case):
        before = self.peak_kib = self.gateway.memory_kib()
        way = "keepalive" if name in ASKED_BY_KEEPALIVE else "requests"
        self.ask(way)
        did = case(self)
        times = sorted(self.ask(way))
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
    """What each is, where it still is anything."""
    found = []
    for path in pathlib.Path(f"/proc/{gateway.process.pid}/fd").iterdir():
        with contextlib.suppress(OSError):
            found.append(str(path.readlink()))
    return found


# TLS

class Certificates:
    """An authority, a stranger's, and what both have given."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir()
        for authority in ("authority", "stranger"):
            self.openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={authority}",
                         "-keyout", f"{authority}.key", "-out", f"{authority}.pem")
        self.give("gateway", "GVX#001")
        self.give("main", "GVX#000")
        self.give("media", "nobody", "URI:MU#001,DNS:IMGU#001")
        self.give("foreign", "GVX#000", by="stranger")

    def openssl(self, *command):
        e2e.run("sh", "-c", f'cd "{self.folder}" && umask 077 && exec openssl "$@" 2>&1', "openssl", *command)

    def give(self, name, common_name, alternative="", by="authority"):
        self.openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={common_name}", "-keyout",
                     f"{name}.key", "-out", f"{name}.csr")
        escaped = alternative.replace("#", "\\#")  # a comment begins with it
        (self.folder / "extensions").write_text(f"subjectAltName={escaped}" if alternative else "")
        self.openssl("x509", "-req", "-in", f"{name}.csr", "-CA", f"{by}.pem", "-CAkey", f"{by}.key", "-days", "2",
                     "-set_serial", str(time.time_ns()), "-extfile", "extensions", "-out", f"{name}.new")
        (self.folder / f"{name}.new").rename(self.folder / f"{name}.pem")

    def path(self, name):
        return str(self.folder / name)

    def wrap(self, name, **changes):
        """What makes TLS of a socket, with that certificate or with none."""
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.load_verify_locations(self.path("authority.pem"))
        if name:
            context.load_cert_chain(self.path(f"{name}.pem"), self.path(f"{name}.key"))
        for key, value in changes.items():
            setattr(context, key, value)
        return context.wrap_socket

    def hello(self):
        """The first bytes of a handshake."""
        incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        with contextlib.suppress(ssl.SSLWantReadError):
            context.wrap_bio(incoming, outgoing, server_hostname="gateway").do_handshake()
        return outgoing.read()


def half_handshakes(attack):
    peers = [connect(attack.port) for _ in range(attack.many(300, 1000))]
    hello = attack.certificates.hello()
    for number, peer in enumerate(peers):
        peer.sendall((hello, hello[:50], registration("SCU#plain"), b"\x16\x03\x01\x40\x00")[number % 4])
    time.sleep(attack.seconds)
    for peer in peers:
        peer.close()
    return f"{len(peers)} handshakes begun"


def handshake_flood(attack):
    def work(first):
        wrap, end, count = attack.certificates.wrap("media"), time.monotonic() + attack.seconds, 0
        while time.monotonic() < end:
            with contextlib.suppress(OSError), wrap(connect(attack.port)) as peer:
                peer.sendall(registration("MU#001"))
                peer.recv(1000)
            count += 1
        return count
    return f"{sum(attack.in_processes(2, work))} handshakes"


def refused(attack):
    """Each is turned away, and is told apart in the log."""
    own = attack.certificates
    for wrap, link_id, line in (
            (own.wrap("foreign"), "GVX#000", "TLS: certificate verify failed"),
            (own.wrap(""), "GVX#000", "TLS: peer did not return a certificate"),
            (own.wrap("main", maximum_version=ssl.TLSVersion.TLSv1_2), "GVX#000", "TLS: unsupported protocol"),
            (own.wrap("main"), "SCU#001", "the certificate does not name SCU#001"),
            (own.wrap("media"), "GVX#000", "the certificate does not name GVX#000")):
        with contextlib.suppress(OSError), wrap(connect(attack.port)) as peer:
            peer.sendall(registration(link_id))
            answer = peer.recv(1000)
            e2e.check(not answer or e2e.Message(answer).code != 0, f"a peer was taken in spite of: {line}")
        e2e.wait_until(lambda line=line: attack.gateway.lines("Link closed", line), 10 * attack.slow, line)
    for link_id in ("MU#001", "IMGU#001"):
        e2e.Peer.linked(attack.port, link_id, wrap=own.wrap("media")).sock.close()
    return "5 kinds refused, 2 names taken"


def renewed_files(attack):
    def serial():
        with attack.certificates.wrap("media")(connect(attack.port)) as peer:
            return peer.getpeercert()["serialNumber"]
    before = serial()
    for told, *key in (("no certificate assigned", "EC", "-pkeyopt", "ec_paramgen_curve:P-256"),
                       ("the key has a passphrase", "RSA", "-aes256", "-pass", "pass:secret")):
        attack.certificates.openssl("genpkey", "-algorithm", *key, "-out", "gateway.key")
        e2e.wait_until(lambda told=told: serial() == before and attack.gateway.lines("cannot be used", f"of no use: {told}"),
                       20 * attack.slow, f"a key that is none: {told}")
    attack.certificates.give("gateway", "GVX#001")
    e2e.wait_until(lambda: serial() != before, 20 * attack.slow, "the renewed certificate is shown")
    return "taken without a restart"


def tool_over_tls(attack):
    own = attack.certificates
    own.give("tool", "tool", "URI:GVX#tool,URI:GVX#000")
    done = e2e.run(attack.gateway.options.gvxctl, "config", "get", "--gateway", str(attack.port), "--tls-cert",
                   own.path("tool.pem"), "--tls-key", own.path("tool.key"), "--tls-ca", own.path("authority.pem"))
    e2e.check("GVX_MESSAGE_IP" in done.stdout, f"gvxctl got {done.stdout[:300]}")
    return "gvxctl is answered"


TLS_CASES = {
    "TLS: half a handshake": half_handshakes,
    "TLS: handshakes": handshake_flood,
    "TLS: refused": refused,
    "TLS: renewed files": renewed_files,
}


def meet_hostile_peers(options, folder, stack):
    # The descriptors of a thousand peers.
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(8192, limit), limit))
    video, _ = e2e.make_clip(folder, seconds=1)
    media = {"demo": {"video": str(video), "fps": 25}}
    settings = {"GVX_LINK_MEMORY_TOTAL": TOTAL, "GVX_LINK_REGISTER_TIME": 2000, "GVX_LINK_FRAME_TIME": 2000}
    gateway = e2e.start_gateway(options, folder, stack, media, settings)
    with e2e.Peer.linked(gateway.port, "OMU#warm").sock:
        pass
    meet(Attack(options, gateway), CASES, options, stack)

    own = Certificates(folder / "certificates")
    (folder / "tls").mkdir()
    gateway = e2e.start_gateway(options, folder / "tls", stack, media, {  # each line counts, beside thousands of its kind
        **settings, "GVX_LOG_REPEAT_LIMIT": 0, "GVX_LINK_TLS": 1, "GVX_LINK_TLS_CERT": own.path("gateway.pem"),
        "GVX_LINK_TLS_KEY": own.path("gateway.key"), "GVX_LINK_TLS_CA": own.path("authority.pem")})
    attack = Attack(options, gateway, own.wrap("main"))
    attack.certificates = own
    meet(attack, TLS_CASES, options, stack)


def meet(attack, cases, options, stack):
    stack.callback(attack.prober.kill)
    gateway, held, rows = attack.gateway, descriptors(attack.gateway), []
    try:
        for name, case in cases.items():
            if options.case in ("", name):
                rows.append(attack.carry_out(name, case))
    finally:
        print_table(rows)
    try:
        e2e.wait_until(lambda: len(descriptors(gateway)) <= len(held) + MADE_LATER, 100, "the descriptors are back")
    except e2e.Failure as fault:
        counts = [collections.Counter(one.split(":")[0] for one in row) for row in (held, descriptors(gateway))]
        raise e2e.Failure(f"{fault}: {counts[0]}, now {counts[1]}") from None
    attack.end()
    if cases is TLS_CASES:
        print(tool_over_tls(attack))  # takes the place of the main service
    stop_under_fire(gateway)


def stop_under_fire(gateway):
    flooder = multiprocessing.Process(target=flood, args=(gateway.port, 9, 10, "SCU", long_text(), 20))
    flooder.start()
    time.sleep(0.5)
    try:
        print(f"ended within {gateway.stop():.2f} s while 10 peers flooded it")
    finally:
        flooder.kill()
        flooder.join()


if __name__ == "__main__":
    multiprocessing.set_start_method("fork")
    e2e.main(meet_hostile_peers)

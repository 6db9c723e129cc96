"""Alarms of the gateway before the first link to OMU, while the main service is down and before the cloud side has
taken the gateway over: where each goes, and in which order. What an earlier process left open is cleared or kept, also
when starts are refused, and when very much of it meets a main service that reads late."""
import contextlib
import sqlite3
import subprocess
import threading
import time

import gvx_e2e as e2e

FLOW_OFF, STORE_OFF = "ALARM_GVX_FLOW_CONTROL_ERROR_OFF", "ALARM_GVX_ALARM_RECORD_FAIL_OFF"
LOG_ALARM = ("308521803", "FilePath=/nowhere,FileName=x,ErrorCode=500")
LEFT_OPEN = [("308521806", "queue a"), LOG_ALARM, ("308521806", "queue b")]


def leave_open(folder, *open_alarms):
    """The store of a process that has died with these alarms open."""
    data = folder / "root" / "var" / "lib" / "gvx"
    data.mkdir(parents=True)
    with contextlib.closing(sqlite3.connect(data / "alarms.db")) as store:
        store.execute("CREATE TABLE alarm (id INTEGER PRIMARY KEY AUTOINCREMENT, type TEXT NOT NULL, "
                      "info TEXT NOT NULL)")
        store.executemany("INSERT INTO alarm (type, info) VALUES (?, ?)", open_alarms)
        store.commit()
    return data / "alarms.db"


def stored(path):
    with contextlib.closing(sqlite3.connect(path)) as store:
        return store.execute("SELECT type, info FROM alarm ORDER BY id").fetchall()


def alarms(peer, kind, count=0):
    """Type and location of so many alarms, and of those that arrive behind them until nothing has come for a second."""
    type_at, location_at = (520, 608) if kind == e2e.GATEWAY_ALARM else (1064, 1132)
    found = []
    while message := peer.receive_if_any(1 if len(found) >= count else 60):
        if message.kind == kind:
            found.append((e2e.text(message.raw[type_at:type_at + 64]),
                          e2e.text(message.raw[location_at:location_at + 256])))
    return found


def types(found):
    return [kind for kind, _ in found]


def start(options, folder, stack, name, inited="true", left_open=LEFT_OPEN, settings=None):
    place = folder / name
    place.mkdir()
    store = leave_open(place, *left_open)
    cloud = place / "root" / "home" / "zvs_common"
    cloud.mkdir(parents=True)
    (cloud / "cloudconfig.xml").write_text(f"<CloudConfig><inited>{inited}</inited></CloudConfig>")
    gateway = e2e.start_gateway(options, place, stack, {}, settings)
    e2e.wait_until(lambda: gateway.lines("gvxd ready"), 60 * options.slow, "the store is read")
    return gateway, store


def omu_first(options, folder, stack):
    gateway, store = start(options, folder, stack, "omu_first")
    omu = e2e.Peer.linked(gateway.port, "OMU#001")
    e2e.check(alarms(omu, e2e.GATEWAY_ALARM) == [], "an alarm left while the main service was down")
    main = e2e.Peer.linked(gateway.port, "GVX#000")
    wanted = [(FLOW_OFF, "queue a"), (FLOW_OFF, "queue b")] + [(STORE_OFF, "HostIP=127.0.0.1")] * 3
    found = alarms(omu, e2e.GATEWAY_ALARM, len(wanted))
    e2e.check(found == wanted, f"OMU got {found}")
    found = alarms(main, e2e.KSP_REPORT, len(wanted))
    e2e.check(types(found) == types(wanted), f"KSP got {found}")
    e2e.check(found[2][1] == "HostIP=127.0.0.1,LocalDesc=Alarm from GVX", f"KSP's location: {found[2]}")
    e2e.wait_until(lambda: stored(store) == [LOG_ALARM], 20 * options.slow, "the rows of what has left are deleted")
    # An alarm's frame that comes by a link is a request like any other, of a type that nobody serves.
    omu.send(e2e.frame(e2e.GATEWAY_ALARM, 77))
    e2e.wait_until(lambda: gateway.lines("not create session by reqID[0x1008]"), 20, "the frame is taken for a request")
    e2e.check(alarms(omu, e2e.GATEWAY_ALARM) == [], "a frame was reflected")
    gateway.stop()
    print("OMU before the main service: held, then sent in order to OMU and KSP")


def main_service_first(options, folder, stack):
    gateway, store = start(options, folder, stack, "main_first", settings={"MAX_CAPS": 500})
    cleared = [(FLOW_OFF, "queue a"), (FLOW_OFF, "queue b")]
    for name in ("GVX#000", "GVX#001"):  # the second is that of a start anew, since OMU has not had its part
        main = e2e.Peer.linked(gateway.port, name)
        found = alarms(main, e2e.KSP_REPORT, len(cleared))
        e2e.check(found == cleared, f"KSP got {found} before the link to OMU")
        e2e.check(stored(store) == LEFT_OPEN, f"left in the store: {stored(store)}")
        if name == "GVX#000":
            gateway.stop()
            gateway.start()
    omu = e2e.Peer.linked(gateway.port, "OMU#001")
    waited = ["ALARM_GVX_CONFIG_READ_FAIL"] + [STORE_OFF] * 3
    found = alarms(omu, e2e.GATEWAY_ALARM, len(waited + cleared))
    e2e.check(types(found) == waited + [FLOW_OFF] * 2 and found[0][1].endswith("zvs_gvx.conf,ParaName=MAX_CAPS")
              and found[4:] == cleared, f"OMU got {found}")
    e2e.check(types(alarms(main, e2e.KSP_REPORT, len(waited))) == waited, "KSP did not get what waited for OMU")
    e2e.wait_until(lambda: stored(store) == [LOG_ALARM], 20 * options.slow, "the rows of what has left are deleted")
    gateway.stop()
    print("main service before OMU: KSP gets clears of before the start at once, OMU what waited at its first link")


def not_taken_over(options, folder, stack):
    gateway, store = start(options, folder, stack, "no_cloud", inited="false")
    omu, main = e2e.Peer.linked(gateway.port, "OMU#001"), e2e.Peer.linked(gateway.port, "GVX#000")
    e2e.check(alarms(main, e2e.KSP_REPORT) == [] and alarms(omu, e2e.GATEWAY_ALARM) == [], "an alarm left before the flag")
    lost = lambda: len(gateway.lines("Cloud config inited is false, no need to send alarm"))
    e2e.wait_until(lambda: lost() == 7, 60, "the lines of lost alarms: three of the store, two alarms to two peers")
    e2e.check(stored(store) == LEFT_OPEN, f"left in the store: {stored(store)}")
    gateway.stop()
    print("before the cloud flag: nothing leaves and nothing waits")


def refused(options, folder, stack):
    """Starts that come to nothing take nothing from the store; the one that gets its links clears what is open."""
    gateway, store = start(options, folder, stack, "refused")
    second = e2e.Gateway(options, folder / "second", settings={"GVX_PLUGIN_LIST": "nowhere"})
    second.folder = gateway.folder

    def fails(code, named):
        done = subprocess.run([*second.command(), "--listen-port", "0", "--log-file", second.log_file], env=second.whole_environment(), check=False,
                              capture_output=True, text=True, timeout=60 * options.slow)
        e2e.check(done.returncode == code and named in done.stderr and len(done.stderr.splitlines()) == 1,
                  f"exit code {done.returncode}: {done.stderr}")
        e2e.check(stored(store) == LEFT_OPEN, f"left in the store: {stored(store)}")

    side_file = second.conf / "zvs_gvx.conf.bak"
    side_file.write_text("half an edit of the first")
    fails(15, f"the data folder {store.parent} belongs to another gateway")
    e2e.check(side_file.exists() and not second.log_file.exists(), "the second gateway has touched files")
    gateway.stop()  # ahead of its first link
    fails(12, "nowhere")
    gateway.start()
    gateway.kill()
    gateway.start()
    omu, main = e2e.Peer.linked(gateway.port, "OMU#001"), e2e.Peer.linked(gateway.port, "GVX#000")
    for peer, kind in ((omu, e2e.GATEWAY_ALARM), (main, e2e.KSP_REPORT)):
        found = alarms(peer, kind, 2)
        e2e.check(found[:2] == [(FLOW_OFF, "queue a"), (FLOW_OFF, "queue b")], f"got {found}")
    e2e.wait_until(lambda: stored(store) == [LOG_ALARM], 20 * options.slow, "the rows of what has left are deleted")
    gateway.stop()
    print("refused, stopped and killed starts: every row is there until its clear has left")


def late_reader(options, folder, stack):
    """Each of very many held alarms arrives once and in order at peers that begin to read late."""
    wanted = [f"queue {number}" for number in range(options.held)]
    begin = time.monotonic()
    gateway, store = start(options, folder, stack, "late", left_open=[("308521806", text) for text in wanted])
    took = time.monotonic() - begin
    omu = e2e.Peer.linked(gateway.port, "OMU#001", receive_buffer=4096)
    main = e2e.Peer.linked(gateway.port, "GVX#000", receive_buffer=4096)
    time.sleep(3)
    found = {}

    def read(peer, kind, location_at):
        found[kind] = texts = []
        spoken = 0.0
        while len(texts) < options.held and (message := peer.receive_if_any(20 * options.slow)):
            if time.monotonic() - spoken > 5:  # as peers do: one that says nothing is closed after half a minute
                spoken = time.monotonic()
                peer.send(e2e.frame(e2e.KEEPALIVE, 1))
            text = e2e.text(message.raw[location_at:location_at + 256])
            texts += [text] if message.kind == kind and text.startswith("queue") else []

    readers = [threading.Thread(target=read, args=row) for row in ((omu, e2e.GATEWAY_ALARM, 608), (main, e2e.KSP_REPORT, 1132))]
    for reader in readers:
        reader.start()
    for reader in readers:
        reader.join()
    closing = ", ".join(f"{name} got {len(found[kind])} of {options.held}, lost {len(set(wanted) - set(found[kind]))}, "
                        f"doubled {len(found[kind]) - len(set(found[kind]))}"
                        for name, kind in (("OMU", e2e.GATEWAY_ALARM), ("KSP", e2e.KSP_REPORT)))
    print(f"peers that read 3 s late: {closing}; ready after {took:.1f} s")
    e2e.check(all(texts == wanted for texts in found.values()), f"not each once and in order: {closing}")
    e2e.check(not gateway.lines("Link queue full"), "the alarms overran a queue")
    e2e.wait_until(lambda: stored(store) == [], 30 * options.slow, "the rows are deleted")
    gateway.stop()


def killed_with_full_queues(options, folder, stack):
    """A kill while clears wait in the queues of links: each has reached its peer, or its row is still there."""
    wanted = {f"queue {number}" for number in range(3000)}
    gateway, store = start(options, folder, stack, "killed", left_open=[("308521806", text) for text in sorted(wanted)])
    omu = e2e.Peer.linked(gateway.port, "OMU#001", receive_buffer=4096)
    main = e2e.Peer.linked(gateway.port, "GVX#000", receive_buffer=4096)
    e2e.wait_until(lambda: len(stored(store)) < len(wanted), 30 * options.slow, "some have left")
    gateway.kill()
    kept = {text for _, text in stored(store)}
    for peer, kind, location_at in ((omu, e2e.GATEWAY_ALARM, 608), (main, e2e.KSP_REPORT, 1132)):
        reached = set()
        with contextlib.suppress(e2e.Failure, OSError):  # the end; an answer to a frame would take what has not come yet
            while message := peer.next_frame(time.monotonic() + 20 * options.slow):
                reached |= {e2e.text(message.raw[location_at:location_at + 256])} if message.kind == kind else set()
        e2e.check(wanted <= reached | kept, f"{len(wanted - reached - kept)} clears are lost by a kill, {len(kept)} are kept")
    print(f"killed with full queues: {len(wanted) - len(kept)} of {len(wanted)} have left, lost 0")


def alarms_in_order(*arguments):
    for part in (omu_first, main_service_first, not_taken_over, refused, late_reader, killed_with_full_queues):
        part(*arguments)


if __name__ == "__main__":
    e2e.main(alarms_in_order)

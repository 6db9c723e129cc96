"""Alarms of the gateway before the first link to OMU, while the main service is down and before the cloud side has
taken the gateway over: where each goes, and in which order. What an earlier process left open is cleared or kept."""
import contextlib
import sqlite3

import gvx_e2e as e2e

FLOW_OFF, STORE_OFF = "ALARM_GVX_FLOW_CONTROL_ERROR_OFF", "ALARM_GVX_ALARM_RECORD_FAIL_OFF"
LOG_ALARM = ("308521803", "FilePath=/nowhere,FileName=x,ErrorCode=500")


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


def alarms(peer, kind, seconds=1.0):
    """Type and location of the alarms that arrive until nothing has come for so long."""
    type_at, location_at = (520, 608) if kind == e2e.GATEWAY_ALARM else (1064, 1132)
    found = []
    while message := peer.receive_if_any(seconds):
        if message.kind == kind:
            found.append((e2e.text(message.raw[type_at:type_at + 64]),
                          e2e.text(message.raw[location_at:location_at + 256])))
    return found


def types(found):
    return [kind for kind, _ in found]


def start(options, folder, stack, name, inited="true"):
    place = folder / name
    place.mkdir()
    store = leave_open(place, ("308521806", "queue a"), LOG_ALARM, ("308521806", "queue b"))
    cloud = place / "root" / "home" / "zvs_common"
    cloud.mkdir(parents=True)
    (cloud / "cloudconfig.xml").write_text(f"<CloudConfig><inited>{inited}</inited></CloudConfig>")
    return e2e.start_gateway(options, place, stack, {}), store


def omu_first(options, folder, stack):
    gateway, store = start(options, folder, stack, "omu_first")
    omu = e2e.Peer.linked(gateway.port, "OMU#001")
    e2e.check(alarms(omu, e2e.GATEWAY_ALARM) == [], "an alarm left while the main service was down")
    main = e2e.Peer.linked(gateway.port, "GVX#000")
    wanted = [(FLOW_OFF, "queue a"), (FLOW_OFF, "queue b")] + [(STORE_OFF, "HostIP=127.0.0.1")] * 3
    found = alarms(omu, e2e.GATEWAY_ALARM, 2 * options.slow)
    e2e.check(found == wanted, f"OMU got {found}")
    found = alarms(main, e2e.KSP_REPORT)
    e2e.check(types(found) == types(wanted), f"KSP got {found}")
    e2e.check(found[2][1] == "HostIP=127.0.0.1,LocalDesc=Alarm from GVX", f"KSP's location: {found[2]}")
    e2e.check(stored(store) == [LOG_ALARM], f"left in the store: {stored(store)}")
    # An alarm's frame that comes by a link is a request like any other, of a type that nobody serves.
    omu.send(e2e.frame(e2e.GATEWAY_ALARM, 77))
    e2e.wait_until(lambda: gateway.lines("not create session by reqID[0x1008]"), 20, "the frame is taken for a request")
    e2e.check(alarms(omu, e2e.GATEWAY_ALARM) == [], "a frame was reflected")
    gateway.stop()
    print("OMU before the main service: held, then sent in order to OMU and KSP")


def main_service_first(options, folder, stack):
    gateway, _ = start(options, folder, stack, "main_first")
    main = e2e.Peer.linked(gateway.port, "GVX#000")
    found = alarms(main, e2e.KSP_REPORT, 2 * options.slow)
    e2e.check(types(found) == [FLOW_OFF] * 2, f"KSP got {found} before the link to OMU")
    e2e.check(len(gateway.lines("Forward to OMU", "did not leave")) == 2, "what OMU lost is not told")
    omu = e2e.Peer.linked(gateway.port, "OMU#001")
    found = alarms(omu, e2e.GATEWAY_ALARM, 2 * options.slow)
    e2e.check(types(found) == [STORE_OFF] * 3, f"OMU got {found}")
    e2e.check(types(alarms(main, e2e.KSP_REPORT)) == [STORE_OFF] * 3, "KSP did not get what waited for OMU")
    gateway.stop()
    print("main service before OMU: KSP at once, what waited for OMU at its first link")


def not_taken_over(options, folder, stack):
    gateway, _ = start(options, folder, stack, "no_cloud", inited="false")
    omu, main = e2e.Peer.linked(gateway.port, "OMU#001"), e2e.Peer.linked(gateway.port, "GVX#000")
    e2e.check(alarms(main, e2e.KSP_REPORT) == [] and alarms(omu, e2e.GATEWAY_ALARM) == [], "an alarm left before the flag")
    lost = gateway.lines("Cloud config inited is false, no need to send alarm")
    e2e.check(len(lost) == 7, f"{len(lost)} lines tell of lost alarms")  # three of the store, two alarms to two peers
    gateway.stop()
    print("before the cloud flag: nothing leaves and nothing waits")


def alarms_in_order(*arguments):
    for part in (omu_first, main_service_first, not_taken_over):
        part(*arguments)


if __name__ == "__main__":
    e2e.main(alarms_in_order)

"""Peers that send garbage, impossible lengths, half a frame or nothing are closed with one line each, and a
well-behaved link is answered all the while."""
import random
import time

import gvx_e2e as e2e

REGISTER_LIMIT, FRAME_LIMIT = 1, 1.5  # seconds that the gateway waits for a registration and for the rest of a frame


def registered(port, link_id, data):
    peer = e2e.Peer.linked(port, link_id)
    peer.send(data)
    return peer


def unregistered(port, data):
    peer = e2e.Peer.connect(port)
    peer.send(data)
    return peer


def hostile_peers(port, register_limit, frame_limit):
    """(what it does, its link, seconds until it must be gone)."""
    noise = random.Random(7).randbytes(5000)
    length = lambda count: e2e.frame(e2e.DEL_DEV, 5, length=count)
    half = e2e.frame(e2e.DEL_DEV, 5, e2e.TAG_XML, b"<Content/>")[:80]
    return [
        ("garbage", unregistered(port, noise), 0),
        ("garbage behind a registration", registered(port, "SCU#011", noise), 0),
        ("length 0", registered(port, "SCU#012", length(0)), 0),
        ("length 115", registered(port, "SCU#013", length(115)), 0),
        ("length 4 GiB", registered(port, "SCU#014", length(0xFFFFFFFF)), 0),
        ("length 4 GiB without a registration", unregistered(port, length(0xFFFFFFFF)), 0),
        ("a request without a registration", unregistered(port, e2e.frame(e2e.DEL_DEV, 5)), 0),
        ("half a frame", registered(port, "SCU#015", half), frame_limit),
        ("half a registration", unregistered(port, e2e.frame(e2e.REGISTER, 1)[:50]), register_limit),
        ("silence", unregistered(port, b""), register_limit),
    ]


def answered_until(good, moment):
    slowest = 0.0
    while True:
        begin = time.monotonic()
        good.is_answered()
        slowest = max(slowest, time.monotonic() - begin)
        if time.monotonic() >= moment:
            return slowest
        time.sleep(0.05)


def meet_hostile_peers(options, folder, stack):
    register_limit, frame_limit = REGISTER_LIMIT * options.slow, FRAME_LIMIT * options.slow
    gateway = e2e.Gateway(options, folder, {}, {"GVX_LINK_REGISTER_TIME": int(register_limit * 1000),
                                                "GVX_LINK_FRAME_TIME": int(frame_limit * 1000)})
    stack.callback(gateway.kill)
    gateway.start()
    good = e2e.Peer.linked(gateway.port, "GVX#000")
    good.is_answered()
    begin = time.monotonic()
    peers = hostile_peers(gateway.port, register_limit, frame_limit)
    # The good link is served while the patience with the slow ones runs out.
    slowest = answered_until(good, begin + frame_limit + 1)
    e2e.check(slowest < 2 * options.slow, f"the good link waited {slowest:.2f} s for an answer")
    for what, peer, patience in peers:
        left = begin + patience + 20 * options.slow - time.monotonic()
        e2e.check(peer.closed_within(max(1, left)), f"still open: {what}")
    for what, peer, _ in peers:
        lines = gateway.lines("Link closed", f"127.0.0.1:{peer.local_port},")
        e2e.check(len(lines) == 1, f"{what}: {len(lines)} lines instead of one: {lines}")
        print(f"{what}: {lines[0][lines[0].index('[peer'):]}")
    print(f"slowest answer on the good link: {slowest * 1000:.0f} ms")
    good.is_answered()
    gateway.stop()


if __name__ == "__main__":
    e2e.main(meet_hostile_peers)

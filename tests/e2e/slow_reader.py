"""A main service that asks without end and reads nothing: what waits for it is bounded, its overflow is logged once,
other links are served, and once it reads again it is served as well."""
import json
import time

import gvx_e2e as e2e

ANSWER_BYTES = 400            # of the memory, at least, of a refusal with its reason
QUEUE_LIMIT = 8 << 20         # bytes that the gateway keeps for one link
BATCH = 400                   # fewer than a device's queue admits
GROWTH_LIMIT_KIB = 96 * 1024  # the queue, with what keeping it in blocks of one frame costs
FULL, DRAINED = "Link queue full", "Link queue drained"
QUESTION = json.dumps({"DevCode": "NOBODY", "ServiceID": "none", "DstIP": "127.0.0.1", "DstVideoPort": 9}).encode()

def overfill(gateway, slow, other, limit, pause):
    """Asks until the queue is full, and some more. The pauses leave the gateway time to answer rather than to refuse."""
    end, asked = time.monotonic() + limit, 0

    def ask():
        nonlocal asked
        slow.send(b"".join(e2e.frame(e2e.START_STREAM, seq, e2e.TAG_JSON, QUESTION, trans=b"flood-%d" % seq)
                           for seq in range(asked, asked + BATCH)))
        asked += BATCH

    while not gateway.lines(FULL):
        e2e.check(time.monotonic() < end, f"no overflow after {asked} questions")
        ask()
        time.sleep(pause)
        other.keeps_alive()
    for _ in range(10):
        ask()
    other.keeps_alive()
    return asked

def read_until_drained(gateway, slow, limit):
    end, answers = time.monotonic() + limit, 0
    while not gateway.lines(DRAINED):
        e2e.check(time.monotonic() < end, "the queue does not drain though the peer reads")
        for _ in range(2000):
            if not slow.receive_if_any(0.2):
                break
            answers += 1
    return answers

def meet_slow_reader(options, folder, stack):
    gateway = e2e.start_gateway(options, folder, stack, {})
    before = gateway.memory_kib()
    slow = e2e.Peer.linked(gateway.port, "GVX#000", receive_buffer=4096)
    other = e2e.Peer.linked(gateway.port, "OMU#001")
    slow.sock.settimeout(60 * options.slow)
    asked = overfill(gateway, slow, other, 120 * options.slow, 0.02 * options.slow)
    growth = gateway.memory_kib() - before
    print(f"full after {asked} questions, the gateway grew by {growth} KiB")
    e2e.check(growth < GROWTH_LIMIT_KIB * options.slow, f"the gateway grew by {growth} KiB")
    e2e.check(len(gateway.lines(FULL)) == 1, "the overflow was logged more than once")
    # Nobody is told any more, but devices come, and their plug-in is called.
    other.send(e2e.frame(e2e.ADD_DEV, 3, e2e.TAG_XML, b"<Content><DevCode>CAM1</DevCode><PluginName>file</PluginName><Extend>"
                         b'{"media":"none"}</Extend></Content>', trans=b"beside"))
    e2e.wait_until(lambda: gateway.lines("There is no medium 'none'", "CAM1"), 60 * options.slow, "a device is served meanwhile")
    answers = read_until_drained(gateway, slow, 120 * options.slow)
    e2e.check(answers * ANSWER_BYTES > QUEUE_LIMIT // 2, f"only {answers} answers had waited")
    print(gateway.lines(DRAINED)[0])
    slow.is_answered()
    other.keeps_alive()
    gateway.stop()

if __name__ == "__main__":
    e2e.main(meet_slow_reader)

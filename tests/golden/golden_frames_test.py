"""Compares the frames that the connection manager sends with those of nss_frames.json, byte for byte, and takes each
apart by a decoder of its own: golden_frames_test.py SEND_FRAMES NSS_FRAMES_JSON

In the data "bytes" is a whole frame; "made" names the fields that the sender draws itself ("seq", "transaction"), whose
bytes are laid over the golden ones once they have been found proper; "text" or "structure" is the body.
"""
import json
import re
import subprocess
import sys

FIELDS = {"version": (0, 2), "type": (2, 4), "seq": (4, 8), "trace": (8, 12), "transaction": (12, 76),
          "code": (76, 80), "reserve": (80, 112), "length": (112, 116)}
MADE_TRANSACTION = re.compile(r"[0-9a-f]{16}-[0-9a-f]{16}")
TAGS = {"xml": 1, "json": 7}


def number(data):
    return int.from_bytes(data, "big")


def decode(data):
    """The fields of a frame and its body, which is an item where the form says so."""
    found = {name: number(data[begin:end]) for name, (begin, end) in FIELDS.items()}
    text, _, padding = data[12:76].partition(b"\0")
    assert not padding.strip(b"\0"), "the transaction is not padded with zeros"
    found["transaction"] = text.decode("ascii")
    assert found["length"] == len(data), f"length {found['length']} of {len(data)} bytes"
    return found, data[116:]


def check_body(entry, body):
    form = entry["form"]
    if form == "none":
        assert body == b"", f"a body: {body!r}"
    elif form == "structure":
        assert body == bytes.fromhex(entry["structure"]), f"structure {body.hex()}"
    else:
        assert number(body[0:2]) == TAGS[form], f"tag {number(body[0:2])}"
        assert number(body[2:6]) == len(body) - 6, f"item of {number(body[2:6])} in {len(body)} bytes"
        assert body[6:].decode("utf-8") == entry["text"], f"text {body[6:]!r}"


def check_fields(entry, data):
    found, body = decode(data)
    expected = {"version": 0x0100, "reserve": 0, "length": len(data), **entry["fields"]}
    wrong = {name: found[name] for name in set(FIELDS) - set(entry.get("made", [])) if found[name] != expected[name]}
    assert not wrong, f"{wrong}, not as in {expected}"
    check_body(entry, body)


def golden_for(entry, sent, result):
    """The golden bytes with what the sender draws itself, once that is proper."""
    golden = bytearray.fromhex(entry["bytes"])
    found, _ = decode(sent)
    for name in entry.get("made", []):
        if name == "transaction":
            assert MADE_TRANSACTION.fullmatch(found[name]), f"transaction {found[name]}"
        elif entry.get("result") == "seq":
            assert found["seq"] == result, f"sequence number {found['seq']}, told {result}"
        begin, end = FIELDS[name]
        golden[begin:end] = sent[begin:end]
    return bytes(golden)


def check_entry(entry, line):
    name, link, open_transactions, result, text = line.split()
    assert name == entry["name"], f"the program sent {name}"
    check_fields(entry, bytes.fromhex(entry["bytes"]))
    sent = bytes.fromhex(text)
    check_fields(entry, sent)
    golden = golden_for(entry, sent, int(result))
    if isinstance(entry.get("result"), int):
        assert int(result) == entry["result"], f"result {result}"
    assert sent == golden, f"\n  sent   {sent.hex()}\n  golden {golden.hex()}"
    assert link == entry["link"], f"link {link}"
    assert int(open_transactions) == entry["transactions"], f"{open_transactions} open transactions"


def main():
    with open(sys.argv[2], encoding="utf-8") as source:
        data = json.load(source)
    done = subprocess.run([sys.argv[1], data["request"]], capture_output=True, text=True, timeout=50, check=True)
    lines = [line for line in done.stdout.splitlines() if line.startswith(("request_", "response_"))]
    assert len(lines) == len(data["frames"]), f"{len(lines)} frames sent, {len(data['frames'])} expected"
    failures = 0
    for entry, line in zip(data["frames"], lines):
        try:
            check_entry(entry, line)
        except AssertionError as fault:
            print(f"{entry['name']}: {fault}", file=sys.stderr)
            failures += 1
    print(f"{len(lines) - failures} of {len(lines)} frames are as they must be")
    sys.exit(failures != 0)


if __name__ == "__main__":
    main()

"""A relay that keeps what passes, and captures made of it: packets with the bytes that were really sent, under TCP
heads of our own, so that no right to listen on an interface is needed."""
import contextlib
import socket
import struct
import threading
import time

LINKTYPE_RAW_IP = 101
TO_GATEWAY, FROM_GATEWAY = 0, 1


class Relay:
    """Stands between peers and the gateway. chunks holds (connection, direction, seconds, bytes) in their order."""

    def __init__(self, gateway_port):
        self.gateway_port, self.chunks, self.peer_ports = gateway_port, [], []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):  # until the listener closes
            while True:
                peer, address = self.listener.accept()
                gateway = socket.create_connection(("127.0.0.1", self.gateway_port))
                self.peer_ports.append(address[1])
                for ends in ((TO_GATEWAY, peer, gateway), (FROM_GATEWAY, gateway, peer)):
                    threading.Thread(target=self._pump, args=(len(self.peer_ports) - 1, *ends), daemon=True).start()

    def _pump(self, number, direction, source, target):
        with contextlib.suppress(OSError):  # the other direction may have ended the connection
            while data := source.recv(65536):
                self.chunks.append((number, direction, time.time(), data))
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def bytes_of(self, number, direction):
        return b"".join(chunk[3] for chunk in list(self.chunks) if chunk[:2] == (number, direction))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.close()


def write_capture(path, chunks, peer_ports, gateway_port, largest_segment=None):
    """One packet a chunk, or several of at most so many bytes."""
    sent = {}
    with open(path, "wb") as out:
        out.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 0x40000, LINKTYPE_RAW_IP))
        for number, direction, seconds, data in chunks:
            step = largest_segment or 60000
            for at in range(0, len(data), step):
                piece = data[at:at + step]
                ours = sent.get((number, direction), 1)
                theirs = sent.get((number, 1 - direction), 1)
                ports = (peer_ports[number], gateway_port)
                packet = _packet(ports[direction], ports[1 - direction], ours, theirs, piece)
                out.write(struct.pack("<IIII", int(seconds), int(seconds % 1 * 1e6), len(packet), len(packet)) + packet)
                sent[(number, direction)] = ours + len(piece)


def _packet(source_port, target_port, seq, ack, data):
    loopback = socket.inet_aton("127.0.0.1")
    tcp = struct.pack(">HHIIBBHHH", source_port, target_port, seq, ack, 0x50, 0x18, 0xFFFF, 0, 0)
    ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(data), 0, 0x4000, 64, socket.IPPROTO_TCP, 0, loopback, loopback)
    return ip + tcp + data

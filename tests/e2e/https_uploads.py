"""Uploads to nginx over TLS, with good and bad certificates, and to peers that break off, stall or drip."""
import concurrent.futures
import contextlib
import os
import queue
import socket
import ssl
import threading
import time

import gvx_e2e as e2e
import http_peers as peers

SEND_ERROR, RECV_ERROR = 109100021, 109100022
BAD = {"expired": "date", "self": "chain", "other": "name", "weak": "key"}
SESSION = "?a=1&FileSessionId=s3ss10n&b=2"
ANSWER = b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"


def make_certificates(folder):
    good = "subjectAltName=DNS:localhost,IP:127.0.0.1"
    for name, bits, days, extension in (("ca", 2048, 30, "basicConstraints=CA:TRUE"), ("self", 2048, 30, good),
                                        ("good", 2048, 30, good), ("expired", 2048, -1, good), ("weak", 1024, 30, good),
                                        ("other", 2048, 30, "subjectAltName=DNS:other.example")):
        at = f"{folder}/{name}"
        signer = ("-signkey", f"{at}.key") if name in ("ca", "self") else ("-CA", folder / "ca.pem", "-CAkey",
                                                                           folder / "ca.key", "-CAcreateserial")
        e2e.run("openssl", "req", "-newkey", f"rsa:{bits}", "-nodes", "-keyout", f"{at}.key", "-out", f"{at}.csr",
                "-subj", f"/CN={name}", "-addext", extension)
        e2e.run("openssl", "x509", "-req", "-in", f"{at}.csr", *signer, "-days", str(days), "-copy_extensions", "copy",
                "-out", f"{at}.pem")


class Nginx:
    """Stores each body as a file. One port for each kind of server."""

    def __init__(self, stack, folder):
        self.folder, self.stack, inner, servers = folder, stack, e2e.free_port(), ""
        self.ports = {kind: e2e.free_port() for kind in ("tls12", "tls13", "closing", *BAD)}
        for kind, port in self.ports.items():
            certificate = kind if kind in BAD else "good"
            protocol = {"tls12": "TLSv1.2", "tls13": "TLSv1.3"}.get(kind, "TLSv1.2 TLSv1.3")
            (folder / "bodies" / kind).mkdir(parents=True)
            (folder / "bodies" / kind).chmod(0o777)
            servers += f"""
  server {{
    listen 127.0.0.1:{port} ssl;
    ssl_certificate {folder}/{certificate}.pem;
    ssl_certificate_key {folder}/{certificate}.key;
    ssl_protocols {protocol};
    ssl_ciphers DEFAULT@SECLEVEL=0;
    keepalive_timeout {"0" if kind == "closing" else "60"};
    access_log {folder}/{kind}.access seen;
    location / {{
      client_body_temp_path {folder}/bodies/{kind};
      client_body_in_file_only on;
      proxy_pass_request_body off;
      proxy_set_header Content-Length "";
      proxy_pass http://127.0.0.1:{inner}/;
    }}
  }}"""
        self.conf = folder / "nginx.conf"
        self.conf.write_text(f"""
daemon off;
pid {folder}/nginx.pid;
{"user root;" if os.geteuid() == 0 else ""}
error_log {folder}/nginx-error.log;
events {{ }}
http {{
  log_format seen "$connection $ssl_protocol $status $http_cookie $request";
  client_max_body_size 0;
  {" ".join(f"{name}_temp_path {folder}/{name};" for name in ("proxy", "fastcgi", "uwsgi", "scgi", "client_body"))}
  access_log off;
  server {{ listen 127.0.0.1:{inner}; location / {{ return 200 "stored"; }} }}{servers}
}}
""")
        self.start()

    def start(self):
        self.server = peers.Server(self.stack, self.folder, self.ports["tls12"], "/usr/sbin/nginx", "-p",
                                   str(self.folder), "-c", str(self.conf), "-e", str(self.folder / "nginx-error.log"))

    def url(self, kind, host="localhost"):
        return f"https://{host}:{self.ports[kind]}/store/file.bin{SESSION}"

    def stored(self, kind):
        return [peers.sha256(path) for path in (self.folder / "bodies" / kind).rglob("*") if path.is_file()]

    def accesses(self, kind):
        return [line.split(" ", 4) for line in (self.folder / f"{kind}.access").read_text().splitlines()]


def check_nginx(options, folder, stack, files):
    nginx = Nginx(stack, folder)
    wanted = {path: peers.sha256(path) for path in files}
    driver = peers.Driver(options, stack, folder)
    for kind, protocol in (("tls12", "TLSv1.2"), ("tls13", "TLSv1.3"), ("closing", "TLSv1.3")):
        results = driver.upload(8, *((path, nginx.url(kind)) for path in files))
        e2e.check(results == [0] * len(files), f"{kind}: {results}")
        e2e.check(sorted(nginx.stored(kind)) == sorted(wanted.values()), f"{kind}: other files arrived")
        seen = e2e.wait_until(lambda: len(nginx.accesses(kind)) == len(files) and nginx.accesses(kind), 30, "log lines")
        e2e.check(all(line[1:4] == [protocol, "200", "FileSessionId=s3ss10n"] for line in seen), f"{kind}: {seen}")
        links = len({line[0] for line in seen})
        print(f"{kind}: {len(files)} uploads by 8 threads, {protocol}, {links} connections", flush=True)
        e2e.check(links == len(files) if kind == "closing" else links <= 5, f"{kind}: {links} connections")
    for kind, part in BAD.items():
        results = driver.upload(1, (files[0], nginx.url(kind)))
        e2e.check(results == [1] and not nginx.stored(kind), f"{kind}: {results}")
        e2e.check(driver.logged(f"is refused: its {part} is wrong") == 1, f"{kind}: no word of the {part}")
        print(f"{kind}: refused, {part}", flush=True)
    e2e.check(driver.upload(1, (files[0], nginx.url("tls13", "127.0.0.1"))) == [0], "by address")
    e2e.check(driver.logged("s3ss10n") == 0, "the session is logged")

    # A restart under way: what was told to be stored is, and what comes after it goes through.
    restart = threading.Timer(0.1, lambda: (nginx.server.stop(), nginx.start()))
    restart.start()
    pairs = [(path, nginx.url("tls12")) for path in files] * 3
    results = driver.upload(8, *pairs)
    restart.join()
    stored = nginx.stored("tls12")
    for (path, _), result in zip(pairs, results):
        e2e.check(result == 1 or result == 0 and wanted[path] in stored, f"restart: {path} is not stored: {results}")
    print(f"restart: {results.count(0)} of {len(results)} stored", flush=True)
    results = driver.upload(8, *pairs)
    e2e.check(results == [0] * len(pairs), f"after the restart: {results}")
    driver.close()

    lax = peers.Driver(options, stack, folder, "lax", HTTPS_CHECK_HOST_NAME=0)
    e2e.check(lax.upload(1, (files[0], nginx.url("other"))) == [0], "another name where names are not looked at")
    lax.close()


class Rogue:
    """A TLS server whose act(connection) plays one bad peer; counts the connections."""

    def __init__(self, stack, folder, act, tls=True):
        self.listener = stack.enter_context(socket.create_server(("127.0.0.1", 0)))
        self.url = f"https://localhost:{self.listener.getsockname()[1]}/x{SESSION}"
        self.act, self.tls, self.count = act, tls, 0
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(folder / "good.pem", folder / "good.key")
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                link, _ = self.listener.accept()
                self.count += 1
                threading.Thread(target=self.serve, args=(link,), daemon=True).start()

    def serve(self, link):
        with contextlib.suppress(OSError):
            if self.tls:
                link = self.context.wrap_socket(link, server_side=True)
            self.act(link)
        link.close()


def read_request(link):
    def more():
        piece = link.recv(65536)
        if not piece:
            raise OSError
        return piece

    data = b""
    while b"\r\n\r\n" not in data:
        data += more()
    head, body = data.split(b"\r\n\r\n", 1)
    left = int(head.split(b"Content-Length: ")[1].split(b"\r\n")[0]) - len(body)
    while left > 0:
        left -= len(more())


def answering(*pieces, pause=0):
    def act(link):
        while True:
            read_request(link)
            for piece in pieces:
                link.sendall(piece)
                time.sleep(pause)
    return act


def once(*pieces, requests=1, pause=0):
    """Answers so many requests at once, and nothing behind them."""
    def act(link):
        for _ in range(requests):
            read_request(link)
        for piece in pieces:
            link.sendall(piece)
            time.sleep(pause)
        time.sleep(600)
    return act


def reset(link):
    link.recv(1000)
    link.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")


def check_rogues(options, folder, stack, path, large):
    lanes = queue.SimpleQueue()  # each waits for its peers beside the others
    for lane in range(4):
        lanes.put(peers.Driver(options, stack, folder, f"rogue{lane}", HTTPS_UPLOAD_TIMEOUT=8))
    head = b"HTTP/1.1 200 OK\r\n"
    lengths = [(f"length {text}", answering(head + b"Content-Length: " + text.encode() + b"\r\n\r\n"), path, 0, 2)
               for text in ("-1", "2147483647", "99999999999", "9" * 400)]
    # what, act, file, result, connections that two uploads in a row make
    drip = once(*(bytes([byte]) for byte in ANSWER * 100), pause=1)
    rows = [
        ("good", answering(ANSWER), path, 0, 1),
        ("head in pieces", answering(ANSWER[:5], ANSWER[5:30], ANSWER[30:], pause=0.1), path, 0, 1),
        ("body in pieces", answering(ANSWER[:-1], ANSWER[-1:], pause=0.2), path, 0, 1),
        ("interim answer", answering(b"HTTP/1.1 100 Continue\r\n\r\n" + ANSWER), path, 0, 1),
        ("interim answers without end", answering(b"HTTP/1.1 100 Continue\r\n\r\n" * 400), path, 1, 2),
        ("no length", answering(head + b"\r\n"), path, 0, 2),
        ("length 0", answering(head + b"Content-Length: 0\r\n\r\n"), path, 0, 1), *lengths,
        ("more than its length", answering(head + b"Content-Length: 1\r\n\r\nab"), path, 0, 2),
        ("chunked", answering(head + b"Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n"), path, 0, 2),
        ("closing", answering(head + b"Connection: Close\r\nContent-Length: 0\r\n\r\n"), path, 0, 2),
        ("a head of 10,240 bytes", answering(head + b"X: " + b"x" * 10220), path, 0, 2),
        ("NUL bytes", answering(head + b"\0\0\0: \0\r\n\r\n"), path, 0, 2),
        ("500", answering(ANSWER.replace(b"200", b"500")), path, 1, 1),
        ("no number", answering(ANSWER.replace(b"200", b"2x0")), path, 1, 1),
        # An answer that is not to its own request, or whose second half comes too late, is nobody's.
        ("late", once(ANSWER * 2, requests=2), path, 0, 2),
        ("split", once(ANSWER[:12], b"", b"", ANSWER[12:], pause=3), path, RECV_ERROR, 6),
        ("silent after the request", once(), path, RECV_ERROR, 2),
        ("never reads", once(requests=0), large, SEND_ERROR, 6),
        ("one byte a second", drip, path, 1, None),
        ("reset in mid-body", reset, large, 1, 4),
    ]
    plain = {"silent before TLS": once(requests=0), "closes": lambda link: None,
             "no TLS": lambda link: link.sendall(b"HTTP/1.1 400 Bad\r\n\r\n")}

    def check_row(what, act, file, result, links):
        peer = Rogue(stack, folder, act, tls=what not in plain)
        driver = lanes.get()
        begun = time.monotonic()
        got = [driver.upload(1, (file, peer.url)) for _ in range(2)]
        took = time.monotonic() - begun
        lanes.put(driver)
        e2e.check(got == [[result]] * 2, f"{what}: {got}")
        print(f"{what}: {result} in {took:.1f} s for two, {peer.count} connections", flush=True)
        e2e.check(links is None or peer.count == links, f"{what}: {peer.count} connections")
        e2e.check(took < 40 * options.slow, f"{what}: {took} s")

    with concurrent.futures.ThreadPoolExecutor(lanes.qsize()) as pool:
        for row in [pool.submit(check_row, *row)
                    for row in rows + [(what, act, path, 1, 2) for what, act in plain.items()]]:
            row.result()
    driver = lanes.get()
    # Five that hold their places delay a sixth no longer than the limit.
    peer = Rogue(stack, folder, drip)
    good = Rogue(stack, folder, answering(ANSWER))
    results = driver.upload(6, *((path, url) for url in [peer.url] * 5 + [good.url]))
    e2e.check(results[5] == 0 and results[:5] == [1] * 5, f"beside dripping peers: {results}")
    bare = good.url.removesuffix(SESSION)
    for url in ("https://localhost/x" + SESSION, bare, "http://localhost:1/x" + SESSION, bare + "?b=2",
                f"https://localhost:99999/x{SESSION}", f"{bare}\x01y{SESSION}"):
        got = driver.upload(1, (path, url))
        e2e.check(got[0] in (1, 2), f"{url}: {got}")
    for lane in [driver, *(lanes.get() for _ in range(lanes.qsize()))]:
        lane.close()


def test(options, folder, stack):
    make_certificates(folder)
    peers.make_files(folder / "files", {f"file{i}": 1 + i * i * 9973 for i in range(20)})
    files = sorted((folder / "files").iterdir())
    peers.make_files(folder, {"large": 16_000_000})
    check_nginx(options, folder, stack, files)
    check_rogues(options, folder, stack, files[3], folder / "large")


if __name__ == "__main__":
    e2e.main(test, peers.PROGRAMS)

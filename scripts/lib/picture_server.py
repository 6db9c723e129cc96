#!/usr/bin/env python3
"""A server for pictures on loopback: keeps each body that is sent to it by HTTPS.

  picture_server.py DIR

makes its certificates in DIR (ca.pem is what clients are to trust), prints "port N" when it listens, and writes the bodies to
DIR/picture_1 and so on.
"""
import http.server
import pathlib
import ssl
import subprocess
import sys


def make_certificates(folder):
    """ca.pem, and good.pem with good.key for localhost."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)

    for name, extension in (("ca", "basicConstraints=CA:TRUE"), ("good", "subjectAltName=DNS:localhost,IP:127.0.0.1")):
        signer = ("-signkey", "ca.key") if name == "ca" else ("-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial")
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out", f"{name}.csr", "-subj", f"/CN={name}",
                "-addext", extension)
        openssl("x509", "-req", "-in", f"{name}.csr", *signer, "-days", "30", "-copy_extensions", "copy", "-out", f"{name}.pem")


def make_server(folder, keep):
    """A server that calls keep with each body; its address takes pictures under any path."""
    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def do_POST(self):
            keep(self.rfile.read(int(self.headers["Content-Length"])))
            self.send_response(200)
            self.send_header("Content-Length", "0")
            self.end_headers()

        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / "good.pem", folder / "good.key")
    server.socket = context.wrap_socket(server.socket, server_side=True)
    return server


def main():
    folder, bodies = pathlib.Path(sys.argv[1]), []

    def keep(body):
        bodies.append(body)
        part = folder / "part"
        part.write_bytes(body)
        part.rename(folder / f"picture_{len(bodies)}")

    make_certificates(folder)
    server = make_server(folder, keep)
    print("port", server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()

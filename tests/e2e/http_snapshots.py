"""Snapshots from web servers of Debian that ask for Basic and for Digest, with MD5, SHA-256 and both."""
import base64
import hashlib
import os

import gvx_e2e as e2e
import http_peers as peers

USER = "admin"
PASSWORD = "P" * 60 + "w0rd"  # the longest one
PICTURES = {"small.jpg": 10_000, "standing.jpg": 614_400, "large.jpg": 10_000_000}


def start_lighttpd(stack, folder):
    port = e2e.free_port()
    (folder / "plain").write_text(f"{USER}:{PASSWORD}\n")
    require = ""
    for name, algorithm in (("basic", ""), ("md5", "MD5"), ("sha256", "SHA-256"), ("both", "MD5|SHA-256"),
                            ("both_turned", "SHA-256|MD5")):
        (folder / "www" / name).symlink_to(folder / "pictures")
        way = f'"digest", "algorithm" => "{algorithm}"' if algorithm else '"basic"'
        require += f'"/{name}/" => ("method" => {way}, "realm" => "camera of {name}", "require" => "valid-user"),\n'
    (folder / "lighttpd.conf").write_text(f"""
server.modules = ("mod_auth", "mod_authn_file", "mod_accesslog")
server.document-root = "{folder}/www"
server.bind = "127.0.0.1"
server.port = {port}
accesslog.filename = "{folder}/lighttpd-access.log"
auth.backend = "plain"
auth.backend.plain.userfile = "{folder}/plain"
auth.require = ({require})
""")
    peers.Server(stack, folder, port, "/usr/sbin/lighttpd", "-D", "-f", str(folder / "lighttpd.conf"))
    return port


def start_apache(stack, folder):
    port = e2e.free_port()
    hashed = base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()
    (folder / "Basic").write_text(f"{USER}:{{SHA}}{hashed}\n")
    ha1 = hashlib.md5(f"{USER}:camera:{PASSWORD}".encode()).hexdigest()
    (folder / "Digest").write_text(f"{USER}:camera:{ha1}\n")
    modules = "\n".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so" for name in (
        "mpm_event", "authn_core", "authn_file", "authz_core", "authz_user", "auth_basic", "auth_digest"))
    places = ""
    for name, kind in (("abasic", "Basic"), ("amd5", "Digest")):
        (folder / "www" / name).symlink_to(folder / "pictures")
        places += (f"<Location /{name}/>\nAuthType {kind}\nAuthName camera\nAuthUserFile {folder}/{kind}\n"
                   "Require valid-user\n</Location>\n")
    (folder / "apache.conf").write_text(f"""
ServerRoot {folder}
ServerName localhost
Listen 127.0.0.1:{port}
PidFile {folder}/apache.pid
DefaultRuntimeDir {folder}
ErrorLog {folder}/apache-error.log
{modules}
{"User www-data" if os.geteuid() == 0 else ""}
DocumentRoot {folder}/www
{places}""")
    peers.Server(stack, folder, port, "/usr/sbin/apache2", "-D", "FOREGROUND", "-f", str(folder / "apache.conf"))
    return port


def test(options, folder, stack):
    peers.make_files(folder / "pictures", PICTURES)
    (folder / "www").mkdir()
    lighttpd, apache = start_lighttpd(stack, folder), start_apache(stack, folder)

    def fetch(driver, port, path, target):
        return driver.ask("snapshot", "127.0.0.1", port, USER, path, folder / target)

    driver = peers.Driver(options, stack, folder)
    # port, folder, challenge, bits of the algorithms, whether the server takes the answer
    rows = [(lighttpd, "basic", peers.BASIC, 0, True), (lighttpd, "md5", peers.DIGEST, 1, True),
            (lighttpd, "sha256", peers.DIGEST, 2, None), (lighttpd, "both", peers.DIGEST, None, None),
            (lighttpd, "both_turned", peers.DIGEST, None, None), (apache, "abasic", peers.BASIC, 0, True),
            (apache, "amd5", peers.DIGEST, 1, True)]
    for port, way, kind, algorithms, taken in rows:
        driver.ask("password", PASSWORD)
        for name in PICTURES:
            words = fetch(driver, port, f"/{way}/{name}", f"{way}-{name}")
            print(way, name, *words, flush=True)
            e2e.check(int(words[1]) == kind, f"{way}: challenge {words}")
            e2e.check(algorithms is None or int(words[2]) == algorithms, f"{way}: algorithms {words}")
            e2e.check(not taken or words[0] == "0" and peers.sha256(folder / f"{way}-{name}") ==
                      peers.sha256(folder / "pictures" / name), f"{way} {name}: another picture, {words}")
        driver.ask("password", "wrong")
        words = fetch(driver, port, f"/{way}/small.jpg", "wrong.jpg")
        e2e.check(int(words[0]) == peers.UNAUTHORIZED, f"{way}: a wrong password gives {words}")
    e2e.check(not (folder / "wrong.jpg").exists(), "a refusal is stored as a picture")
    e2e.check(driver.logged(PASSWORD) == 0, "the password is logged")
    driver.close()

    careful = peers.Driver(options, stack, folder, "careful", AUTH_ALLOW_BASIC=0)
    careful.ask("password", PASSWORD)
    for _ in range(2):
        words = fetch(careful, apache, "/abasic/small.jpg", "basic.jpg")
        e2e.check(words[0] == "1", f"Basic goes out in spite of AUTH_ALLOW_BASIC=0: {words}")
    e2e.check(careful.logged("Basic authentication is refused") == 1, "not told once")
    careful.close()


if __name__ == "__main__":
    e2e.main(test, peers.PROGRAMS)

"""Settings of a running gateway, read and edited by gvxctl, also while another gvxctl streams; the cloud's file; a
password that reaches no log."""
import re
import signal
import subprocess

import gvx_e2e as e2e

SECRET = "S3cr3t-pa55"


def config(options, gateway, verb, *arguments, code=0):
    """What the command says; it must end with that code."""
    done = subprocess.run([options.gvxctl, "config", verb, "--gateway", str(gateway.port), *arguments],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120, check=False)
    e2e.check(done.returncode == code, f"{verb} {arguments}: {done}")
    return done.stdout + done.stderr


def check_edits(options, gateway):
    shown = config(options, gateway, "get")
    e2e.check(len(re.findall("<ConfigInfo>", shown)) == 27, f"the document holds other settings: {shown}")
    config(options, gateway, "set", "SERVICE_CAPACITY", "MAX_CAPS", "99")
    config(options, gateway, "set", "SERVICE_CAPACITY", "MAX_CAPS", "100", "--changed")
    shown = config(options, gateway, "get", "SERVICE_CAPACITY")
    e2e.check("<ConfigValue>100</ConfigValue>" in shown, f"the edit does not show: {shown}")
    refused = config(options, gateway, "set", "SERVICE_CAPACITY", "MAX_CAPS", "200", code=1)
    e2e.check("200 is no value for MAX_CAPS." in refused, f"refusal: {refused}")
    config(options, gateway, "set", "MESSAGE", "MU_NSS_TIMEOUT", "5")
    e2e.check("MU_NSS_TIMEOUT=5\n" in (gateway.conf / "zvs_gvx.conf").read_text(), "the file does not follow")


def check_beside_a_stream(options, gateway, stack):
    """Both link as the main service: whoever asks takes the other's place, and the stream must go on."""
    printed = gateway.folder / "keep.log"
    output = stack.enter_context(open(printed, "wb"))
    streaming = subprocess.Popen(
        [options.gvxctl, "demo", "--keep", "--gateway", str(gateway.port), "--mu", str(e2e.free_port()), "--extend",
         '{"media":"clip"}', "--out", str(gateway.folder)],
        stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT)
    stack.callback(streaming.kill)

    def wait_for_figures():
        wanted = printed.read_text().count("frames lost") + 3
        e2e.wait_until(lambda: streaming.poll() is not None or printed.read_text().count("frames lost") >= wanted,
                       30 * options.slow, "figures of the stream")
        e2e.check(streaming.poll() is None, f"the stream has ended: {printed.read_text()}")

    wait_for_figures()
    e2e.check("<ConfigName>MAX_CAPS</ConfigName>" in config(options, gateway, "get"), "the settings are not shown")
    wait_for_figures()
    streaming.send_signal(signal.SIGINT)
    e2e.check(streaming.wait(30 * options.slow) == 0, f"the stream ended badly: {printed.read_text()}")


def check_password(options, gateway):
    shown = config(options, gateway, "set", "LOG_CFG", "Password", SECRET) + config(options, gateway, "get", "LOG_CFG")
    e2e.check("***" in shown and SECRET not in shown, f"the password shows: {shown}")
    files = [path for path in gateway.folder.rglob("*") if path.is_file()]
    found = [str(path) for path in files if SECRET.encode() in path.read_bytes()]
    e2e.check(not found, f"the password stands in {found}")


def check_cloud_file(gateway, file):
    def wait(text, count):
        e2e.wait_until(lambda: len(gateway.lines(f"The cloud side has {text} this gateway.")) == count, 20, text)

    taken_over = "<CloudConfig><inited>true</inited><RunMode>0</RunMode></CloudConfig>"
    file.write_text(taken_over)
    wait("taken over", 1)
    fresh = file.with_name("fresh.xml")
    fresh.write_text("<CloudConfig><inited>false</inited></CloudConfig>")
    fresh.rename(file)
    wait("let go of", 1)
    file.unlink()
    file.write_text(taken_over)
    wait("taken over", 2)


def run(options, folder, stack):
    video, _ = e2e.make_clip(folder)
    gateway = e2e.Gateway(options, folder, {"clip": {"video": str(video), "loop": True}}, {"BAND_WIDTH": "1000"})
    stack.callback(gateway.kill)
    cloud = folder / "root" / "home" / "zvs_common" / "cloudconfig.xml"
    cloud.parent.mkdir(parents=True)
    cloud.write_text("<CloudConfig><inited>false</inited><RunMode>0</RunMode></CloudConfig>")
    gateway.start()
    e2e.check(gateway.lines("BAND_WIDTH=[1000]", "[256] holds"), "an illegal setting is not named")
    e2e.check("1000" in config(options, gateway, "get", "SERVICE_CAPACITY"), "and does not stay in force")
    check_edits(options, gateway)
    check_password(options, gateway)
    check_cloud_file(gateway, cloud)
    check_beside_a_stream(options, gateway, stack)
    gateway.stop()


if __name__ == "__main__":
    e2e.main(run)

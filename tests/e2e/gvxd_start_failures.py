"""Starts gvxd where it cannot start: it ends with the documented code and one line that names the fault. Then stops it
where a plug-in's call does not return. The plug-ins that misbehave stand in plugins_bad beside the others' folder."""
import contextlib
import os
import pathlib
import signal
import socket
import subprocess
import time

import gvx_e2e as e2e

LIMIT = 60
NO_PLUGIN = {"GVX_PLUGIN_LIST": ""}


def check_end(name, code, standard_error, wanted, named):
    e2e.check(code == wanted and len(standard_error.splitlines()) == 1 and named in standard_error,
              f"{name}: exit code {code}, not {wanted}, or not one line that names {named!r}: {standard_error!r}")


def check_failures(options, folder, taken):
    good, port = {"GVX_PLUGIN_LIST": "moody"}, taken.getsockname()[1]
    # settings, what is taken away of the configuration, further arguments, exit code, what the line names
    rows = [(good, None, ["--no-such-option"], 2, "--no-such-option"),
            (good, None, ["--listen-port", str(port)], 14, f":{port}"),
            (good, "", [], 10, str(folder / "2/conf"))]
    rows += [(NO_PLUGIN, name, [], 11, name)
             for name in ("alarm/gvx_nvt_alarm_description.xml", "zvs_gvx.conf", "zvs_gvx_nat.conf", "net.xml")]
    rows += [({"GVX_PLUGIN_LIST": name}, None, [], code, named) for name, code, named in (
        ("nowhere", 12, "gvx_plugin_nowhere.so"), ("empty", 12, "gvx_plugin_empty.so"), ("wrong_abi", 12, "wrong_abi"),
        ("no_layout", 12, "build it anew"), ("other_layout", 12, "bytes there, "),
        ("unresolved", 12, "gvx_plugin_unresolved.so"), ("refuses", 13, "/nowhere/clip.h264"), ("throws", 13, "throws"))]
    for number, (settings, without, arguments, code, named) in enumerate(rows):
        gateway = e2e.Gateway(options, folder / str(number), settings={"GVX_LISTEN_PORT": 0, **settings})
        if without is not None:
            (gateway.conf / without).rename(folder / f"without_{number}")
        done = subprocess.run([*gateway.command(), *arguments], env=gateway.whole_environment(), capture_output=True, text=True,
                              timeout=LIMIT * options.slow, check=False)
        check_end(f"{settings}, {without}, {arguments}", done.returncode, done.stderr, code, named)


def start_without_log_file(options, folder):
    """A log file that cannot be opened stops nobody: the log goes to standard error, and says so."""
    gateway = e2e.Gateway(options, folder / "no_log", settings=NO_PLUGIN)
    gateway.log_file = gateway.conf / "net.xml" / "gvxd.log"
    gateway.start()
    e2e.wait_until(lambda: f"{gateway.log_file}: Not a directory; the log goes to standard error" in gateway.console(),
                   LIMIT * options.slow, "the line about the log file")
    gateway.stop()


def start_without_streams(options, folder):
    """Nothing that is opened takes the number of a standard stream that was closed."""
    gateway = e2e.Gateway(options, folder / "no_streams", settings=NO_PLUGIN)
    command = gateway.command()
    gateway.command = lambda: ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", *command]
    gateway.start()
    streams = {os.readlink(f"/proc/{gateway.process.pid}/fd/{number}") for number in range(3)}
    e2e.check(streams == {"/dev/null"}, f"the standard streams are {streams}")
    gateway.stop()


def stop_with_hanging_plugin(options, folder, stack):
    """One device hangs in StopStream: another goes on streaming and answering, the end has code 0 in time, and the log
    names plug-in and device."""
    gateway = e2e.start_gateway(options, folder / "hanging_stop", stack, settings={"GVX_PLUGIN_LIST": "moody"})
    peer = e2e.Peer.linked(gateway.port, "GVX#900")
    sink = stack.enter_context(e2e.udp_sink())
    for device, moods in (("STUCK", "StopStream=hang"), ("GOOD", "")):
        peer.add_device(device, moods, "moody")
        peer.start_stream(device, "live-" + device, sink.getsockname()[1] if device == "GOOD" else 9)
    peer.send(e2e.frame(e2e.STOP_STREAM, 7, e2e.TAG_JSON, b'{"DevCode":"STUCK","ServiceID":"live-STUCK"}', trans=b"hangs"))
    for number in range(3):
        peer.add_device(f"MORE{number}", "", "moody")
        sink.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while sink.recv(4096):
                pass
        e2e.check_media_flows(sink, LIMIT * options.slow, "beside a device that hangs")
    gateway.stop()
    e2e.check(gateway.lines("plug-in moody: StopStream of device STUCK has not returned"), "the log does not name it")


def end_hanging_start(options, folder):
    """SIGTERM while a plug-in's Init does not return: the documented code in time, and one line that names it."""
    gateway = e2e.Gateway(options, folder / "hanging_start", settings={"GVX_PLUGIN_LIST": "hangs"})
    with subprocess.Popen(gateway.command(), env=gateway.whole_environment(), stderr=subprocess.PIPE, text=True) as process:
        try:
            maps = pathlib.Path(f"/proc/{process.pid}/maps")
            e2e.wait_until(lambda: process.poll() is not None or "gvx_plugin_hangs" in maps.read_text(),
                           LIMIT * options.slow, "the plug-in's loading")
            begin = time.monotonic()
            process.send_signal(signal.SIGTERM)
            standard_error = process.communicate(timeout=LIMIT * options.slow)[1]
            seconds = time.monotonic() - begin
        finally:
            process.kill()
    check_end("hanging start", process.returncode, standard_error, 16, "plug-in hangs: ")
    e2e.check(seconds <= 5 * options.slow, f"the hanging start took {seconds:.2f} s to end")


def test(options, folder, stack):
    options.plugin_dir = pathlib.Path(options.plugin_dir).absolute().parent / "plugins_bad"
    os.environ.pop("GVX_CONFIG_DIR", None)
    check_failures(options, folder, stack.enter_context(socket.create_server(("127.0.0.1", 0))))
    e2e.start_gateway(options, folder / "good", stack, settings=NO_PLUGIN).stop(number=signal.SIGINT)
    start_without_log_file(options, folder)
    start_without_streams(options, folder)
    stop_with_hanging_plugin(options, folder, stack)
    end_hanging_start(options, folder)


if __name__ == "__main__":
    e2e.main(test)

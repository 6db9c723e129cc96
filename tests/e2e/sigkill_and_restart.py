"""SIGKILL in full flow, then a start on the same port: links, devices and streams work at once."""
import gvx_e2e as e2e


def stream_once(options, gateway, stack):
    platform = e2e.Platform(gateway.port)
    sink = stack.enter_context(e2e.udp_sink())
    platform.main.add_device("CAM001", {"media": "camera"})
    platform.main.start_stream("CAM001", "live", sink.getsockname()[1])
    e2e.check_media_flows(sink, 30 * options.slow, "the stream")
    return platform


def kill_and_restart(options, folder, stack):
    video, audio = e2e.make_clip(folder)
    gateway = e2e.Gateway(options, folder, {"camera": {"video": str(video), "audio": str(audio), "loop": True}})
    stack.callback(gateway.kill)
    gateway.start()
    before = stream_once(options, gateway, stack)
    gateway.kill()
    gateway.start()
    e2e.check(before.main.closed_within(5), "the first link outlived its gateway")
    after = stream_once(options, gateway, stack)
    sent = after.main.stop_stream("CAM001", "live")
    e2e.check(sent["VideoPackets"] > 0, f"the stop says {sent}")
    gateway.stop()


if __name__ == "__main__":
    e2e.main(kill_and_restart)

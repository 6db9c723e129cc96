"""SIGKILL in full flow, then a start on the same port: links, devices and streams work at once. SIGTERM while all four
links are open and eight streams run: gvxd ends with 0 within two seconds and closes every link."""
import gvx_e2e as e2e

STREAMS = 8


def open_streams(options, gateway, stack):
    platform = e2e.Platform(gateway.port)
    for number in range(STREAMS):
        sink, dev = stack.enter_context(e2e.udp_sink()), f"CAM{number:03}"
        port = sink.getsockname()[1]
        platform.main.add_device(dev, {"media": "camera"})
        platform.main.start_stream(dev, f"live-{number}", port, audio_port=port)
        e2e.check_media_flows(sink, 30 * options.slow, f"stream {number}")
    return platform


def end_in_full_flow(options, folder, stack):
    video, audio = e2e.make_clip(folder)
    gateway = e2e.start_gateway(options, folder, stack,
                                {"camera": {"video": str(video), "audio": str(audio), "loop": True}})
    before = open_streams(options, gateway, stack)
    gateway.kill()
    gateway.start()
    e2e.check(before.main.closed_within(30), "the first link outlived its gateway")
    platform = open_streams(options, gateway, stack)
    sent = platform.main.stop_stream("CAM000", "live-0")
    e2e.check(sent["VideoPackets"] > 0, f"the stop says {sent}")
    platform.main.start_stream("CAM000", "live-0", 9)
    print(f"stopped after {gateway.stop():.2f} s")
    for name, peer in vars(platform).items():
        e2e.check(not isinstance(peer, e2e.Peer) or peer.closed_within(30), f"the link of {name} stayed open")


if __name__ == "__main__":
    e2e.main(end_in_full_flow)

"""SIGTERM while all four links are open and eight streams run: gvxd ends with 0 within two seconds."""
import gvx_e2e as e2e

STREAMS = 8


def stop_in_full_flow(options, folder, stack):
    video, audio = e2e.make_clip(folder)
    gateway = e2e.Gateway(options, folder, {"camera": {"video": str(video), "audio": str(audio), "loop": True}})
    stack.callback(gateway.kill)
    gateway.start()
    platform = e2e.Platform(gateway.port)
    sinks = [stack.enter_context(e2e.udp_sink()) for _ in range(STREAMS)]
    for number, sink in enumerate(sinks):
        dev = f"CAM{number:03}"
        platform.main.add_device(dev, {"media": "camera"})
        port = sink.getsockname()[1]
        platform.main.start_stream(dev, f"live-{number}", port, audio_port=port)
    for number, sink in enumerate(sinks):
        e2e.check_media_flows(sink, 30 * options.slow, f"stream {number}")
    print(f"stopped after {gateway.stop(limit=2.0):.2f} s")
    for name, peer in (("main service", platform.main), ("SCU", platform.scu), ("OMU", platform.omu),
                       ("MU", platform.mu)):
        e2e.check(peer.closed_within(5), f"the link of the {name} stayed open")


if __name__ == "__main__":
    e2e.main(stop_in_full_flow)

"""The status page in a browser: rows, live changes, filters, a phone, a gateway that comes back; nothing on the console, no
request to elsewhere."""
import base64
import json
import os
import pathlib
import shutil
import subprocess
import threading

import gvx_e2e as e2e


class Browser:
    """Headless Chromium by its debugging protocol over two pipes: messages end with a zero byte."""

    def __init__(self, program, folder, stack):
        to_read, self.to = os.pipe()
        self.source, from_write = os.pipe()
        # The browser has its ends as 3 and 4. (Not every sh knows descriptors of two digits.)
        shell = f'exec 3<&{to_read} 4>&{from_write}; exec "$@"'
        self.process = subprocess.Popen(
            ["bash", "-c", shell, "bash", program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
             "--disable-dev-shm-usage", "--remote-debugging-pipe", f"--user-data-dir={folder}/browser", "about:blank"],
            pass_fds=(to_read, from_write), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        stack.callback(self.process.wait)
        stack.callback(self.process.kill)
        os.close(to_read)
        os.close(from_write)
        self.number, self.session, self.answers, self.complaints, self.requests = 0, None, {}, [], []
        self.changed = threading.Condition()
        threading.Thread(target=self._read, daemon=True).start()
        target = next(one for one in self.call("Target.getTargets")["targetInfos"] if one["type"] == "page")
        self.session = self.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def _read(self):
        data = b""
        while piece := os.read(self.source, 65536):
            *messages, data = (data + piece).split(b"\0")
            for message in messages:
                self._take(json.loads(message))

    def _take(self, message):
        method, values = message.get("method"), message.get("params", {})
        with self.changed:
            if "id" in message:
                self.answers[message["id"]] = message
            elif method == "Runtime.exceptionThrown" or (
                    method == "Log.entryAdded" and values["entry"]["level"] in ("error", "warning")) or (
                    method == "Runtime.consoleAPICalled" and values["type"] in ("error", "warning")):
                self.complaints.append(values)
            elif method == "Network.requestWillBeSent":
                self.requests.append(values["request"]["url"])
            self.changed.notify_all()

    def call(self, method, **values):
        self.number += 1
        number = self.number
        message = {"id": number, "method": method, "params": values}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        with self.changed:
            e2e.check(self.changed.wait_for(lambda: number in self.answers, 60), f"the browser does not answer {method}")
            answer = self.answers.pop(number)
        e2e.check("result" in answer, f"{method}: {answer.get('error')}")
        return answer["result"]

    def value(self, script):
        answer = self.call("Runtime.evaluate", expression=script, returnByValue=True)
        e2e.check("exceptionDetails" not in answer, f"{script}: {answer}")
        return answer["result"].get("value")

    def wait(self, script, text):
        e2e.wait_until(lambda: self.value(script), 60, text)

    def size(self, width, height, phone=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=phone)

    def picture(self, path):
        path.write_bytes(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))
        e2e.check(path.stat().st_size > 10000, f"{path} is no picture")


def rows(name):
    return f"[...document.querySelectorAll('#{name} tbody tr')].map(row => row.dataset.key).join()"


def check_page(options, folder, stack):
    program = shutil.which("chromium")
    if program is None:
        print("SKIPPED: chromium is not installed (scripts/install-packages.sh installs it)")
        return
    out = pathlib.Path(options.out)
    out.mkdir(exist_ok=True)
    video, audio = e2e.make_clip(folder)
    port = e2e.free_port()
    gateway = e2e.start_gateway(options, folder, stack, {"demo": {"video": str(video), "audio": str(audio)}, "short": {
        "video": str(video), "loop": False}}, {"GVX_STATUS_PORT": port})
    platform = e2e.Peer.linked(gateway.port, "GVX#000")
    sink = e2e.udp_sink()
    for number, medium in enumerate(("demo", "demo", "short")):
        platform.add_device(f"CAM{number}", {"media": medium})
        platform.start_stream(f"CAM{number}", f"live-{number}", sink.getsockname()[1])

    browser = Browser(program, folder, stack)
    browser.size(1280, 1300)
    browser.call("Page.navigate", url=f"http://127.0.0.1:{port}/")
    browser.wait(f"{rows('devices')} === 'CAM0,CAM1,CAM2' && {rows('streams')} === 'live-0,live-1,live-2'", "all rows")
    browser.wait("document.querySelector('#links').textContent.includes('main service')", "the platform's link")
    browser.wait("document.querySelector('#streams').textContent.includes('Mbit/s,') === false && "
                 "/2[3-7] fps/.test(document.querySelector('#streams').textContent)", "rates of 25 frames a second")
    # Live: what happens now shows without a word from the reader.
    platform.add_device("CAM3", {"media": "demo"})
    browser.wait(f"{rows('devices')} === 'CAM0,CAM1,CAM2,CAM3'", "a new device shows")
    browser.wait("/device added\\s*CAM3/.test(document.querySelector('#events').textContent)", "its event shows")
    browser.wait("document.querySelectorAll('#streams .state.bad').length === 1", "the stream that ended shows as silent")
    browser.picture(out / "status_page.png")
    # Search and filter.
    browser.value("document.querySelector('#silent').click()")
    e2e.check(browser.value(rows("streams")) == "live-2" and browser.value(rows("devices")) == "CAM2", "not delivering")
    browser.value("document.querySelector('#silent').click()")
    browser.value("{ const box = document.querySelector('#search'); box.value = 'cam1';"
                  "box.dispatchEvent(new Event('input')); }")
    e2e.check(browser.value(rows("devices")) == "CAM1", "search finds one device")
    browser.value("{ const box = document.querySelector('#search'); box.value = '';"
                  "box.dispatchEvent(new Event('input')); }")
    # A phone.
    browser.size(390, 844, phone=True)
    e2e.check(browser.value("document.documentElement.scrollWidth <= innerWidth"), "a phone has to scroll sideways")
    browser.picture(out / "status_page_phone.png")
    e2e.check(not browser.complaints, f"the console: {json.dumps(browser.complaints)[:2000]}")
    strangers = [url for url in browser.requests if not url.startswith((f"http://127.0.0.1:{port}/", "data:"))]
    e2e.check(not strangers, f"requests to elsewhere: {strangers}")
    gateway.stop()
    browser.wait("document.body.classList.contains('gone')", "the page says that the gateway is gone")
    # The next one counts its events anew; a long list shows its beginning.
    gateway.start()
    platform = e2e.Peer.linked(gateway.port, "GVX#000")
    for number in range(14):
        platform.add_device(f"NEW{number:02}", {"media": "demo"})
    browser.wait("/device added\\s*NEW13/.test(document.querySelector('#events').textContent)", "events of the next run")
    e2e.check("CAM3" not in browser.value("document.querySelector('#events').textContent"), "events of the former run")
    browser.wait("document.querySelectorAll('#devices tbody tr').length === 6", "the first rows")
    browser.value("document.querySelector('#devices button').click()")
    e2e.check(browser.value("document.querySelectorAll('#devices tbody tr').length") == 14, "not all rows")


if __name__ == "__main__":
    e2e.main(check_page, ("gvxd", "gvxctl", "plugin-dir", "conf", "out"))

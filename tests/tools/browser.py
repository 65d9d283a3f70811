"""A headless Chromium, driven through WebDriver with the standard library alone: real keys, clicks and pixels."""
import base64
import json
import re
import shutil
import struct
import subprocess
import urllib.request
import zlib

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key by which WebDriver refers to an element


class Browser:
    def __init__(self, width, height, dark=False):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                       text=True)
        for line in self.driver.stdout:
            started = re.search(r"successfully on port (\d+)", line)
            if started:
                break
        self.base = f"http://127.0.0.1:{started.group(1)}/session"
        arguments = ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--use-angle=swiftshader",
                     "--enable-unsafe-swiftshader", f"--window-size={width},{height}"]
        if dark:
            arguments.append("--force-dark-mode")
        options = {"binary": shutil.which("chromium"), "args": arguments}
        made = self.call("POST", "", {"capabilities": {"alwaysMatch": {
            "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}}})
        self.base += "/" + made["sessionId"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.call("DELETE", "")
        finally:
            self.driver.terminate()
            self.driver.wait()

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)["value"]

    def open(self, path):
        self.call("POST", "/url", {"url": "file://" + urllib.request.pathname2url(str(path))})

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def find(self, selector, index=0):
        return self.call("POST", "/elements", {"using": "css selector", "value": selector})[index][ELEMENT]

    def type_keys(self, element, keys):
        self.call("POST", f"/element/{element}/value", {"text": keys})

    def click(self, element, x=0, y=0):
        """Presses the left button at an offset from the element's center."""
        self.call("POST", "/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "duration": 0, "x": x, "y": y, "origin": {ELEMENT: element}},
            {"type": "pointerDown", "button": 0}, {"type": "pointerUp", "button": 0}]}]})

    def drag(self, element, x, y):
        self.call("POST", "/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "duration": 0, "x": 0, "y": 0, "origin": {ELEMENT: element}},
            {"type": "pointerDown", "button": 0},
            {"type": "pointerMove", "duration": 50, "x": x, "y": y, "origin": {ELEMENT: element}},
            {"type": "pointerUp", "button": 0}]}]})

    def wheel(self, element, y):
        self.call("POST", "/actions", {"actions": [{"type": "wheel", "id": "wheel", "actions": [
            {"type": "scroll", "x": 0, "y": 0, "deltaX": 0, "deltaY": y, "duration": 0,
             "origin": {ELEMENT: element}}]}]})

    def screenshot(self, element=None):
        """PNG bytes of the element, or of the window."""
        path = "/screenshot" if element is None else f"/element/{element}/screenshot"
        return base64.b64decode(self.call("GET", path))

    def pixels(self, element):
        return read_png(self.screenshot(element))

    def console(self):
        return self.call("POST", "/se/log", {"type": "browser"})


def read_png(data):
    """Rows of (r, g, b) of a PNG file of 8 bits without interlacing, as browsers write them."""
    at, packed = 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + size]
        if kind == b"IHDR":
            width, _, _, color = struct.unpack(">IIBB", body[:10])
        packed += body if kind == b"IDAT" else b""
        at += 12 + size
    step = {2: 3, 6: 4}[color]
    raw, stride, rows, above = zlib.decompress(packed), width * step, [], bytes(width * step)
    for start in range(0, len(raw), stride + 1):
        row = bytearray(raw[start + 1:start + 1 + stride])
        unfilter(raw[start], row, above, step)
        rows.append([tuple(row[x:x + 3]) for x in range(0, stride, step)])
        above = row
    return rows


def unfilter(kind, row, above, step):
    for x in range(len(row)):
        left, up, corner = (row[x - step] if x >= step else 0), above[x], (above[x - step] if x >= step else 0)
        if kind == 4:
            guess = left + up - corner
            row[x] = (row[x] + min((left, up, corner), key=lambda v: abs(guess - v))) & 255
        elif kind:
            row[x] = (row[x] + (left, up, (left + up) // 2)[kind - 1]) & 255

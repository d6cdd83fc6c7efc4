"""A real browser without a window, driven through DevTools' pipe (--remote-debugging-pipe).

Messages are JSON ended by a NUL byte, on descriptors 3 (to the browser) and 4 (from it). Nothing
waits for a time: every step waits for its answer or its event.
"""

import base64
import json
import os
import select
import subprocess
import tempfile
import time

PATIENCE = 60  # seconds until a browser counts as hung


class Browser:
    def __init__(self, folder):
        to_read, self.to = os.pipe()
        self.of, of_write = os.pipe()
        self.buffer, self.number, self.events, self.session = b"", 0, [], None
        os.set_inheritable(to_read, True)
        os.set_inheritable(of_write, True)

        def place():  # in the child, past the numbers that are about to be taken
            high = [os.dup2(descriptor, number) for descriptor, number in ((to_read, 30), (of_write, 31))]
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)

        self.process = subprocess.Popen(
            ["/usr/bin/chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--disable-background-networking", "--hide-scrollbars", "--remote-debugging-pipe",
             "--user-data-dir=" + folder, "about:blank"],
            preexec_fn=place, close_fds=False, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(of_write)
        targets = self.call("Target.getTargets")["targetInfos"]
        page = next(target for target in targets if target["type"] == "page")
        self.session = self.call("Target.attachToTarget", targetId=page["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.call(domain + ".enable")

    def close(self):
        try:
            self.session = None
            self.call("Browser.close")
        finally:
            self.process.wait(PATIENCE)

    # ---- messages ----

    def receive(self):
        deadline = time.monotonic() + PATIENCE
        while b"\0" not in self.buffer:
            if not select.select([self.of], [], [], max(deadline - time.monotonic(), 0))[0]:
                raise TimeoutError("the browser says nothing")
            piece = os.read(self.of, 1 << 20)
            if not piece:
                raise EOFError("the browser ended")
            self.buffer += piece
        message, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def await_event(self, method):
        """The next event of a name, also one that came during a call since forget()."""
        while True:
            for place, event in enumerate(self.events):
                if event.get("method") == method:
                    del self.events[place]
                    return event["params"]
            self.events.append(self.receive())

    def forget(self):
        self.events = []

    # ---- what a person does ----

    def open(self, url):
        self.forget()
        self.call("Page.navigate", url=url)
        self.await_event("Page.loadEventFired")

    def run(self, script):
        """What an expression, or a promise of it, comes to."""
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(json.dumps(result["exceptionDetails"]))
        return result["result"].get("value")

    def until(self, condition):
        """Waits inside the page until an expression holds."""
        self.run(f"""new Promise((done, fail) => {{
            const look = () => {{ if ({condition}) done(true); else requestAnimationFrame(look); }};
            setTimeout(() => fail(new Error("never: " + {json.dumps(condition)})), {PATIENCE * 1000});
            look();
        }})""")

    def press(self, key, code=None, text=None, modifiers=0):
        codes = {"Tab": 9, "Enter": 13, " ": 32}
        event = {"key": key, "code": code or key, "modifiers": modifiers, "windowsVirtualKeyCode": codes.get(key, 0)}
        if text is not None:
            event["text"] = text
        self.call("Input.dispatchKeyEvent", type="keyDown", **event)
        self.call("Input.dispatchKeyEvent", type="keyUp", **event)

    def type(self, text):
        self.call("Input.insertText", text=text)

    def look_as(self, width, dark=False, reduced=False, height=800):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=False)
        self.call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
            {"name": "prefers-reduced-motion", "value": "reduce" if reduced else "no-preference"}])

    def picture(self, file, whole=True):
        data = self.call("Page.captureScreenshot", captureBeyondViewport=whole)["data"]
        with open(file, "wb") as picture:
            picture.write(base64.b64decode(data))

    def sign_in(self, address, user, password):
        """By keyboard alone."""
        self.open(address + "/")
        self.run("document.getElementById('user').focus()")
        self.type(user)
        self.press("Tab")
        self.type(password)
        self.forget()
        self.press("Enter", text="\r")
        self.await_event("Page.loadEventFired")


class Browsing:
    """A browser with a profile that goes with it."""

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.browser = Browser(self.folder.name)
        return self.browser

    def __exit__(self, *_):
        self.browser.close()
        self.folder.cleanup()

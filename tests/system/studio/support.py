"""What the tests of the studio's page share: a clip whose codes tell the frame, the server, and a browser."""

import base64
import contextlib
import json
import math
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import numpy
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.remote.command import Command
from selenium.webdriver.support.ui import WebDriverWait

from firefox import Firefox
from server import PATIENCE, Server, free_port

PROGRAM = os.environ["QX_PROGRAM"]
SOURCE = pathlib.Path(os.environ["QX_SOURCE_FOLDER"])
WIDTH, HEIGHT, FRAMES = 640, 360, 60
# The patch at the top left tells the frame: its luma is FIRST_LUMA + LUMA_STEP times the frame.
FIRST_LUMA, LUMA_STEP, PATCH = 20, 3, 64


def make_clip(path, rate="25", aspect="1", *options):
    """A clip without loss, whose frames depend on others before and after them, so that seeking has work to do. `aspect`
    is that of a pixel; the options are FFmpeg's for the output."""
    luma = "if(lt(X,%d)*lt(Y,%d),%d+%d*N,16+mod(X/4+Y/2+N,220))" % (PATCH, PATCH, FIRST_LUMA, LUMA_STEP)
    chroma = "if(lt(X,%d)*lt(Y,%d),128,128+%s)"
    picture = "geq=lum='%s':cb='%s':cr='%s'" % (
        luma,
        chroma % (PATCH // 2, PATCH, "48*sin(X/41+Y/67)"),
        chroma % (PATCH // 2, PATCH, "40*cos(X/53-Y/39)"),
    )
    tags = f"setsar={aspect},setparams=colorspace=bt709:color_primaries=bt709:color_trc=bt709:range=tv"
    subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
         "nullsrc=size=%dx%d:rate=%s,format=yuv422p,%s,%s" % (WIDTH, HEIGHT, rate, picture, tags), "-frames:v", str(FRAMES),
         "-c:v", "libx264", "-qp", "0", "-preset", "ultrafast", "-g", "250", "-bf", "3", "-colorspace", "bt709",
         "-color_range", "tv", *options, str(path)], check=True)


def luma_of(frame):
    """The luma that the patch of a frame has."""
    return FIRST_LUMA + LUMA_STEP * frame


def convert(clip, frame, *options):
    """A frame as `qxhost convert` writes it: RGB of 8 bits, as an array of height, width and colour."""
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "frame.ppm")
        subprocess.run([PROGRAM, "convert", str(clip), str(picture), "--start", str(frame), "--frames", "1", *options],
                       check=True, capture_output=True)
        written = sorted(pathlib.Path(folder).iterdir())
        magic, size, most, codes = written[0].read_bytes().split(b"\n", 3)
        assert (magic, most) == (b"P6", b"255"), written
        width, height = map(int, size.split())
        return numpy.frombuffer(codes, "uint8").reshape(height, width, 3)


def psnr(one, other):
    """The peak signal-to-noise ratio of two pictures of 8 bits, in decibels."""
    error = numpy.mean((one.astype(float) - other.astype(float)) ** 2)
    return math.inf if error == 0 else 10 * math.log10(255 ** 2 / error)


class Chromium(webdriver.Chrome):
    """Chromium without a window."""

    def __init__(self, width, height):
        options = Options()
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", "--hide-scrollbars",
                         "--force-device-scale-factor=1", "--window-size=%d,%d" % (width, height)):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        super().__init__(options=options, service=Service(shutil.which("chromedriver")))

    def set_viewport(self, width, height):
        """The size of the page in its window; None gives it the window's again."""
        if width is None:
            self.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        else:
            self.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                 {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def set_theme(self, theme):
        """What the system is said to wish for: light or dark."""
        self.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": theme}]})


def start_browser():
    """A browser without a window of its own, of 1440 by 1080 pixels: Chromium, or what QX_BROWSER names."""
    browser = {"chromium": Chromium, "firefox": Firefox}[os.environ.get("QX_BROWSER", "chromium")](1440, 1080)
    browser.set_script_timeout(PATIENCE)
    return browser


class Page:
    """One window with the page: what a user sees and does there."""

    def __init__(self, browser, address):
        self.browser = browser
        self.browser.get(address)
        self.window = browser.current_window_handle
        self.wait(lambda: self.picture() is not None, "no picture came")

    def wait(self, condition, message):
        """Waits until something holds; its value."""
        return WebDriverWait(self.browser, PATIENCE, poll_frequency=0.05).until(lambda _: condition(), message)

    def run(self, script, *arguments):
        return self.browser.execute_script(script, *arguments)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def click(self, selector):
        self.find(selector).click()

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0]).textContent", selector)

    def picture(self, of="after"):
        """The header of the picture that is shown; None without one."""
        header = self.run("return document.getElementById('picture').dataset[arguments[0]] ?? null", of)
        return header and json.loads(header)

    def studio(self, expression):
        """What the page's own modules know: an expression of `studio`."""
        return self.browser.execute_async_script(
            "const done = arguments[0]; import(new URL('base/studio.js', location.href))"
            ".then(({studio}) => done(%s))" % expression)

    def change_is_shown(self, of="after"):
        """Waits until the picture shows the last change that was made here."""
        def shown():
            return (self.picture(of) or {}).get("answers", -1) >= self.studio("studio.change")
        self.wait(shown, "the picture does not show the change")

    def set_slider(self, parameter, value):
        """Drags the first slider of a parameter to a value and lets it go."""
        self.run("""
            const slider = document.querySelector(`[data-parameter="${arguments[0]}"] input[type=range]`);
            slider.value = arguments[1];
            slider.dispatchEvent(new Event('input'));
            slider.dispatchEvent(new Event('change'));
            """, parameter, value)
        self.wait(lambda: self.parameter(parameter)["values"][0] == numpy.float32(value), "the server did not take the value")
        self.change_is_shown()

    def parameter(self, name):
        """A parameter of the open link, as the server says it."""
        return next(p for p in self.studio("studio.link(studio.selected).parameters") if p["name"] == name)

    def type_number(self, selector, value):
        """Types a number into a field."""
        field = self.find(selector)
        field.click()
        field.send_keys(Keys.CONTROL, "a", Keys.NULL, str(value), Keys.ENTER)

    def go_to(self, frame):
        """Types a frame into the field of the time code."""
        self.type_number("#time", frame)
        self.wait(lambda: (self.picture() or {}).get("frame") == frame, "frame %d was not shown" % frame)

    def point_at(self, x, y):
        """Puts the pointer on a pixel of the clip."""
        self.browser.execute_async_script("""
            const [x, y, done] = arguments;
            import(new URL('picture/picture.js', location.href)).then(({stagePlace}) => {
                const place = stagePlace(x + 0.5, y + 0.5);
                const box = document.getElementById('stage').getBoundingClientRect();
                document.getElementById('stage').dispatchEvent(new PointerEvent('pointermove',
                    {bubbles: true, clientX: box.left + place.x, clientY: box.top + place.y}));
                done();
            });""", x, y)

    def codes(self, x, y):
        """What the page says of a pixel: red, green, blue, Y, Cb and Cr of the clip and of the result."""
        self.point_at(x, y)
        # The answer may be that of the place or of the frame before.
        self.run("delete document.getElementById('probe').dataset.answer")
        self.point_at(x, y)

        def answered():
            answer = json.loads(self.run("return document.getElementById('probe').dataset.answer ?? null") or "null")
            return answer if answer and (answer["x"], answer["y"]) == (x, y) else None

        self.wait(answered, "no codes came")
        cells = self.run("return Object.fromEntries([...document.querySelectorAll('#probe td[data-probe]')]"
                         ".map((cell) => [cell.dataset.probe, Number(cell.textContent)]))")
        return {name: [cells["%s-%s" % (name, channel)] for channel in ("r", "g", "b", "y", "cb", "cr")]
                for name in ("before", "after")}

    def wait_until_drawn(self):
        """The page draws what has come at the next frame of the screen."""
        self.browser.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(arguments[0]));")

    def pixels(self):
        """The whole clip as the page shows it, at one pixel of the screen for one of the clip."""
        self.click("#zoom-one")
        self.wait(lambda: self.picture()["width"] == WIDTH and self.picture()["region"] == [0, 0, WIDTH, HEIGHT],
                  "the picture did not come in full size")
        self.wait_until_drawn()
        numbers = self.run("""
            const canvas = document.getElementById('picture');
            const left = Math.round(canvas.width / 2 - arguments[0] / 2);
            const top = Math.round(canvas.height / 2 - arguments[1] / 2);
            const data = canvas.getContext('2d').getImageData(left, top, arguments[0], arguments[1]).data;
            let text = '';
            for (let i = 0; i < data.length; i += 4)
                text += String.fromCharCode(data[i], data[i + 1], data[i + 2]);
            return btoa(text);
            """, WIDTH, HEIGHT)
        return numpy.frombuffer(base64.b64decode(numbers), "uint8").reshape(HEIGHT, WIDTH, 3)

    def complaints(self):
        """What the browser's console has of errors since the last call. It is no error that an editor is missing that was not
        compiled in."""
        return [entry["message"] for entry in self.browser.get_log("browser")
                if entry["level"] == "SEVERE" and not ("404" in entry["message"] and "/codemirror/" in entry["message"])]


class StudioTest(unittest.TestCase):
    """Tests that share a folder, a clip and a browser; each class says in `effects()` what its server begins with."""

    token = None
    port = None

    @classmethod
    def effects(cls):
        return ["cc3.fx"]

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="studio-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.clip = cls.folder / "clip.mp4"
        make_clip(cls.clip)
        cls.server = Server(cls.clip, *cls.effects(), looks=cls.folder, port=cls.port, token=cls.token)
        cls.addClassCleanup(lambda: cls.server.stop())
        cls.browser = start_browser()
        cls.addClassCleanup(cls.browser.quit)
        cls.page = Page(cls.browser, cls.server.address)

    @contextlib.contextmanager
    def another(self, clip, *effects, page=None):
        """A server of its own, and its page in a window of the same browser. `page` is as Server has it."""
        server = Server(clip, *effects, looks=self.folder, page=page)
        try:
            self.browser.switch_to.new_window("window")
            try:
                opened = Page(self.browser, server.address)
                opened.server = server
                yield opened
            finally:
                self.browser.close()
                self.browser.switch_to.window(self.page.window)
        finally:
            server.stop()

    def tearDown(self):
        complaints = self.page.complaints()
        self.assertEqual(complaints, [])

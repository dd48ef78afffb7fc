"""Firefox for the tests of the studio's page, without a program between: selenium's commands are told to Firefox's own remote
control, Marionette, which has the same ones under other names. Scripts go over WebDriver BiDi instead, since Marionette runs
them outside the page, where its modules are others."""

import asyncio
import json
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

import websockets
from selenium import webdriver
from selenium.common.exceptions import NoSuchElementException, WebDriverException
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.remote.command import Command

from server import PATIENCE

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of an element's reference, from the standard
PREFERENCES = {
    "marionette.port": 0,
    "browser.shell.checkDefaultBrowser": False,
    "datareporting.policy.dataSubmissionEnabled": False,
    "toolkit.telemetry.enabled": False,
    "app.update.enabled": False,
    "browser.startup.homepage": "about:blank",
    "dom.w3c_touch_events.enabled": 1,
    "full-screen-api.warning.timeout": 0,
    "full-screen-api.transition-duration.enter": "0 0",
    "full-screen-api.transition-duration.leave": "0 0",
}

COMMANDS = {
    Command.GET: "WebDriver:Navigate",
    Command.FIND_ELEMENT: "WebDriver:FindElement",
    Command.FIND_ELEMENTS: "WebDriver:FindElements",
    Command.FIND_CHILD_ELEMENT: "WebDriver:FindElement",
    Command.FIND_CHILD_ELEMENTS: "WebDriver:FindElements",
    Command.CLICK_ELEMENT: "WebDriver:ElementClick",
    Command.SEND_KEYS_TO_ELEMENT: "WebDriver:ElementSendKeys",
    Command.GET_ELEMENT_TEXT: "WebDriver:GetElementText",
    Command.GET_ELEMENT_PROPERTY: "WebDriver:GetElementProperty",
    Command.IS_ELEMENT_ENABLED: "WebDriver:IsElementEnabled",
    Command.NEW_WINDOW: "WebDriver:NewWindow",
    Command.SWITCH_TO_WINDOW: "WebDriver:SwitchToWindow",
    Command.CLOSE: "WebDriver:CloseWindow",
    Command.W3C_GET_CURRENT_WINDOW_HANDLE: "WebDriver:GetWindowHandle",
    Command.SET_WINDOW_RECT: "WebDriver:SetWindowRect",
    Command.SET_TIMEOUTS: "WebDriver:SetTimeouts",
    Command.W3C_ACTIONS: "WebDriver:PerformActions",
    Command.W3C_CLEAR_ACTIONS: "WebDriver:ReleaseActions",
    Command.SCREENSHOT: "WebDriver:TakeScreenshot",
}


class Marionette:
    """The connection: messages are JSON behind their length and a colon."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port))
        self.bytes = b""
        self.number = 0
        self.receive()  # what it is

    def receive(self):
        while b":" not in self.bytes:
            self.more()
        length, _, self.bytes = self.bytes.partition(b":")
        while len(self.bytes) < int(length):
            self.more()
        message, self.bytes = self.bytes[:int(length)], self.bytes[int(length):]
        return json.loads(message)

    def more(self):
        taken = self.socket.recv(1 << 20)
        if not taken:
            raise WebDriverException("Firefox has closed its remote control")
        self.bytes += taken

    def ask(self, name, parameters):
        """The error, None without one, and the result."""
        self.number += 1
        message = json.dumps([0, self.number, name, parameters]).encode()
        self.socket.sendall(b"%d:%s" % (len(message), message))
        _, _, error, result = self.receive()
        return error, result


class Bidi:
    """The connection for scripts, and for what the console says."""

    def __init__(self, address):
        self.loop = asyncio.new_event_loop()
        self.socket = self.loop.run_until_complete(self.connected(address))
        self.number = 0
        self.errors = []
        self.ask("session.subscribe", {"events": ["log.entryAdded"]})

    async def connected(self, address):
        return await websockets.connect(address, max_size=None, ping_interval=None)

    def ask(self, method, parameters):
        return self.loop.run_until_complete(asyncio.wait_for(self.answer(method, parameters), PATIENCE))

    async def answer(self, method, parameters):
        self.number += 1
        await self.socket.send(json.dumps({"id": self.number, "method": method, "params": parameters}))
        while True:
            message = json.loads(await self.socket.recv())
            if message["type"] == "event":
                entry = message["params"]
                if entry["level"] == "error":
                    self.errors.append(entry["text"] or "")
            elif message["id"] == self.number:
                if message["type"] == "error":
                    raise WebDriverException("%s: %s" % (message["error"], message["message"]))
                return message["result"]

    def close(self):
        self.loop.run_until_complete(self.socket.close())
        self.loop.close()

    def run(self, window, script, arguments, is_async):
        """Runs a script as WebDriver has it; arguments are elements, or what JSON can say, as is its value."""
        given = [{"sharedId": each[ELEMENT]} if isinstance(each, dict) and ELEMENT in each else
                 {"type": "string", "value": json.dumps(each)} for each in arguments]
        call = "new Promise((done) => work.call(window, ...given, done))" if is_async else "work.apply(window, given)"
        result = self.ask("script.callFunction", {
            "functionDeclaration": "async (...all) => {"
                                   "const given = all.map((each) => typeof each === 'string' ? JSON.parse(each) : each);"
                                   "const work = function() { %s\n};"
                                   "return JSON.stringify(await %s) ?? 'null'; }" % (script, call),
            "arguments": given, "target": {"context": window}, "awaitPromise": True, "userActivation": True})
        if result["type"] == "exception":
            raise WebDriverException(result["exceptionDetails"]["text"])
        return json.loads(result["result"]["value"])


class Executor:
    """What selenium tells its commands to."""

    def __init__(self, connection):
        self.connection = connection
        self.bidi = None

    def close(self):
        self.bidi.close()
        self.connection.socket.close()

    def execute(self, command, parameters):
        parameters = {name: value for name, value in (parameters or {}).items() if name != "sessionId"}
        if command == Command.NEW_SESSION:
            result = self.ask("WebDriver:NewSession", {"webSocketUrl": True})
            self.bidi = Bidi(result["capabilities"]["webSocketUrl"])
            return {"value": result}
        if command in (Command.W3C_EXECUTE_SCRIPT, Command.W3C_EXECUTE_SCRIPT_ASYNC):
            window = self.ask(COMMANDS[Command.W3C_GET_CURRENT_WINDOW_HANDLE], {})["value"]
            return {"value": self.bidi.run(window, parameters["script"], parameters["args"],
                                           command == Command.W3C_EXECUTE_SCRIPT_ASYNC)}
        if command == Command.QUIT:
            self.ask("Marionette:Quit", {"flags": ["eForceQuit"]})
            return {"value": None}
        if command == Command.SEND_KEYS_TO_ELEMENT:
            # What lets modifiers go, Marionette does at the end of a text.
            for part in parameters["text"].split(Keys.NULL):
                self.ask(COMMANDS[command], {"id": parameters["id"], "text": part})
            return {"value": None}
        if command in (Command.FIND_CHILD_ELEMENT, Command.FIND_CHILD_ELEMENTS):
            parameters["element"] = parameters.pop("id")
        result = self.ask(COMMANDS[command], parameters)
        return {"value": result.get("value", result) if isinstance(result, dict) and len(result) == 1 else result}

    def ask(self, name, parameters):
        error, result = self.connection.ask(name, parameters)
        if error:
            kind = NoSuchElementException if error["error"] == "no such element" else WebDriverException
            raise kind("%s: %s" % (error["error"], error["message"]))
        return result


class Firefox(webdriver.Remote):
    """A Firefox of its own, without a window, as start_browser() has Chromium."""

    def __init__(self, width, height):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="firefox-"))
        (self.folder / "user.js").write_text(
            "".join("user_pref(%s, %s);\n" % (json.dumps(name), json.dumps(value)) for name, value in PREFERENCES.items()))
        program = next(filter(None, map(shutil.which, ("firefox-esr", "firefox"))), None)
        if program is None:
            raise RuntimeError("no Firefox is found: apt-get install firefox-esr")
        self.output = open(self.folder / "output", "w")
        self.process = subprocess.Popen(
            [program, "--headless", "--marionette", "--remote-debugging-port=0", "--remote-allow-system-access", "--no-remote", "--profile", str(self.folder),
             "--width", str(width), "--height", str(height)],
            stdout=self.output, stderr=subprocess.STDOUT)
        super().__init__(command_executor=Executor(Marionette(self.wait_for_port())), options=webdriver.FirefoxOptions())

    def wait_for_port(self):
        file = self.folder / "MarionetteActivePort"
        end = time.monotonic() + 60
        while not (file.exists() and file.read_text()):
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError("Firefox does not start:\n" + (self.folder / "output").read_text())
            time.sleep(0.05)
        return int(file.read_text())

    def get_log(self, _):
        """The errors since the last call, as Chromium's log has them."""
        bidi = self.command_executor.bidi
        bidi.ask("session.status", {})  # what came before it is here then
        errors, bidi.errors = bidi.errors, []
        return [{"level": "SEVERE", "message": text} for text in errors]

    def set_viewport(self, width, height):
        """The size of the page in its window; None gives it the window's again."""
        self.in_its_own_page("""
            const {style} = gBrowser.selectedBrowser;
            for (const [side, value] of [["width", arguments[0]], ["height", arguments[1]]]) {
                for (const name of [side, `min-${side}`, `max-${side}`])
                    style.setProperty(name, value === null ? "" : `${value}px`, "important");
            }""", width, height)

    def set_theme(self, theme):
        self.in_its_own_page("gBrowser.selectedBrowser.browsingContext.top.prefersColorSchemeOverride = arguments[0];", theme)

    def in_its_own_page(self, script, *arguments):
        ask = self.command_executor.ask
        ask("Marionette:SetContext", {"value": "chrome"})
        try:
            ask("WebDriver:ExecuteScript", {"script": script, "args": list(arguments)})
        finally:
            ask("Marionette:SetContext", {"value": "content"})

    def quit(self):
        try:
            super().quit()
        finally:
            self.process.wait()
            self.output.close()
            shutil.rmtree(self.folder, ignore_errors=True)

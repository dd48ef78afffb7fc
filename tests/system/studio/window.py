"""A window of the studio without its page: the WebSocket, by Debian's python3-websockets."""

import json
import time

import websockets

# In the place of the picture's bytes, which nobody here looks at.
SIZE = "bytes"


class Window:
    """Made by `async with Window(address) as window`. Pictures are acknowledged as they come."""

    def __init__(self, address):
        self.address = address
        self.state = None
        self.change = 0
        self.asked = 0

    async def __aenter__(self):
        origin = self.address.split("/", 3)
        self.socket = await websockets.connect(
            self.address.replace("http://", "ws://") + "socket", origin="/".join(origin[:3]), compression=None, max_size=None,
            ping_interval=None)
        while self.state is None:
            await self.receive()
        return self

    async def __aexit__(self, *_):
        await self.socket.close()

    async def send(self, do, **words):
        await self.socket.send(json.dumps({"do": do, **words}))

    async def receive(self):
        """The next message, as its header and the moment at which it was there."""
        data = await self.socket.recv()
        now = time.monotonic()
        if isinstance(data, str):
            message = json.loads(data)
            if message["is"] == "state":
                self.state = message
            return message, now
        length = int.from_bytes(data[:4], "little")
        header = json.loads(data[4:4 + length])
        header[SIZE] = len(data) - 4 - length
        await self.send("shown", frame=header["frame"], of=header["of"])
        return header, now

    async def ask(self, do, **words):
        """Sends a message; its answer. What comes before it is dropped."""
        self.asked += 1
        number = self.asked
        await self.send(do, id=number, **words)
        while True:
            message, _ = await self.receive()
            if message["is"] in ("answer", "error") and message.get("id") == number:
                if message["is"] == "error":
                    raise AssertionError("%s: %s" % (do, message["text"]))
                return message

    async def view(self, width, height, **words):
        """Asks for pictures of that size, and waits for the first."""
        await self.send("view", width=width, height=height, **words)
        return (await self.picture())[0]

    async def picture(self, holds=lambda header: True):
        """The next picture for which that holds, and when it came."""
        while True:
            message, now = await self.receive()
            if message["is"] == "error":
                raise AssertionError(message["text"])
            if message["is"] == "picture" and holds(message):
                return message, now

    async def set(self, link, name, values, commit=True):
        """Sets a parameter; the number that the picture with it answers, and when it was sent."""
        self.change += 1
        sent = time.monotonic()
        await self.send("set", link=link, name=name, values=values, change=self.change, commit=commit)
        return self.change, sent

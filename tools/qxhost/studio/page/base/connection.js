// The WebSocket to the server: requests with answers, events, and a new attempt when it is gone.

const firstDelay = 250; // milliseconds
const longestDelay = 5000;

/**
 * Events: `open`, `close` (detail: milliseconds until the next attempt), `message` (detail: the object), `picture`
 * (detail: {header, jpeg}), `problem` (detail: {text, details}).
 */
export class Connection extends EventTarget {
    #socket = null;
    #delay = firstDelay;
    #timer = 0;
    #waiting = new Map();
    #next = 1;

    constructor(address) {
        super();
        this.address = address;
    }

    get isOpen() {
        return this.#socket?.readyState === WebSocket.OPEN;
    }

    /** Bytes that were sent and are still in this machine. */
    get unsent() {
        return this.#socket?.bufferedAmount ?? 0;
    }

    open() {
        clearTimeout(this.#timer);
        if (this.#socket && this.#socket.readyState <= WebSocket.OPEN) return;
        const socket = new WebSocket(this.address);
        socket.binaryType = 'arraybuffer';
        this.#socket = socket;
        socket.addEventListener('open', () => {
            this.#delay = firstDelay;
            this.#tell('open');
        });
        socket.addEventListener('message', ({data}) => this.#received(data));
        socket.addEventListener('close', () => {
            if (socket === this.#socket) this.#closed();
        });
    }

    /** Sends a request; the promise gives its answer, or fails with an Error that has `details` and `kind`. */
    request(name, fields = {}) {
        if (!this.isOpen) return Promise.reject(new Error('there is no connection to the server'));
        const id = this.#next++;
        this.#socket.send(JSON.stringify({do: name, id, ...fields}));
        return new Promise((resolve, reject) => this.#waiting.set(id, {resolve, reject}));
    }

    /** Sends a request whose failure is shown, and whose answer nobody needs. */
    tell(name, fields = {}) {
        return this.request(name, fields).catch((error) => {
            if (this.isOpen) this.#tell('problem', {text: error.message, details: error.details});
        });
    }

    #tell(name, detail) {
        this.dispatchEvent(new CustomEvent(name, {detail}));
    }

    #closed() {
        for (const {reject} of this.#waiting.values()) reject(new Error('the connection to the server was lost'));
        this.#waiting.clear();
        this.#tell('close', this.#delay);
        this.#timer = setTimeout(() => this.open(), this.#delay);
        this.#delay = Math.min(this.#delay * 2, longestDelay);
    }

    #received(data) {
        if (typeof data !== 'string') {
            const length = new DataView(data).getUint32(0, true);
            const header = JSON.parse(new TextDecoder().decode(new Uint8Array(data, 4, length)));
            this.#tell('picture', {
                header,
                jpeg: new Blob([new Uint8Array(data, 4 + length)], {type: 'image/jpeg'})
            });
            return;
        }
        const message = JSON.parse(data);
        const waiting = this.#waiting.get(message.id);
        this.#waiting.delete(message.id);
        if (message.is === 'answer') {
            waiting?.resolve(message);
        } else if (message.is === 'error') {
            const error = Object.assign(new Error(message.text), {details: message.details, kind: message.kind});
            if (waiting) waiting.reject(error);
            else this.#tell('problem', message);
        } else {
            this.#tell('message', message);
        }
    }
}

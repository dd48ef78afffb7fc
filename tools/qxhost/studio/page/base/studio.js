// What the parts of the page share: the connection, the server's state, and what this window has chosen.

import {Connection} from './connection.js';

/**
 * Events: `state`, `catalogue`, `file`, `conflict`, `scopes` (detail: the message), `picture`, `open`, `close`, `problem`,
 * and of this window: `selected`, `compare`, `tab`, `frame` (the frame that is shown has changed), `session` (the
 * first state of a connection is there: the server may be another one).
 */
class Studio extends EventTarget {
    #isNew = true;

    constructor() {
        super();
        this.connection = new Connection(new URL('socket', location.href).href.replace(/^http/, 'ws'));
        this.state = null;
        this.catalogue = {effects: [], luts: []};
        this.selected = null; // the link whose controls are open; '': none, as its user wants
        this.frame = 0; // the frame that is shown
        this.change = 0; // the number of the last change that this window asked for
        this.compare = {way: 'none', against: 'before', times: 8};
        this.quality = 90;
        this.connection.addEventListener('open', () => {
            this.#isNew = true;
        });
        for (const name of ['open', 'close', 'problem', 'picture'])
            this.connection.addEventListener(name, ({detail}) => this.emit(name, detail));
        this.connection.addEventListener('message', ({detail}) => this.#received(detail));
    }

    on(name, listener) {
        this.addEventListener(name, ({detail}) => listener(detail));
    }

    emit(name, detail) {
        this.dispatchEvent(new CustomEvent(name, {detail}));
    }

    tell(name, fields) {
        return this.connection.tell(name, fields);
    }

    request(name, fields) {
        return this.connection.request(name, fields);
    }

    link(id) {
        return this.state?.chain.find((link) => link.id === id) ?? null;
    }

    select(id) {
        this.selected = id;
        this.emit('selected');
    }

    setFrame(frame) {
        if (this.frame === frame) return;
        this.frame = frame;
        this.emit('frame');
    }

    setCompare(changes) {
        Object.assign(this.compare, changes);
        this.emit('compare');
    }

    /** A number for a change, by which the picture that shows it is recognised. */
    nextChange() {
        return ++this.change;
    }

    #received(message) {
        if (message.is === 'state') {
            this.state = message;
            if (this.selected !== '' && !this.link(this.selected)) this.selected = message.chain[0]?.id ?? null;
            if (this.#isNew) {
                this.#isNew = false;
                this.emit('session');
            }
            if (!message.playing) this.setFrame(message.frame);
        } else if (message.is === 'catalogue') {
            this.catalogue = message;
        }
        this.emit(message.is, message);
    }
}

export const studio = new Studio();

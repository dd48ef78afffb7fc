// What connects a control with parameters of the server: changes go out at the rate that the connection takes, and what
// comes back does not move a control that is held.

import {oncePerDrawing} from '../base/dom.js';
import {studio} from '../base/studio.js';

/** Parameters of one link that one control sets together. */
export class Binding {
    #pending = null;
    #underWay = 0;
    #isDragging = false;
    #refresh;

    /** `refresh` is called when the control may show the server's values again. */
    constructor(link, refresh) {
        this.link = link;
        this.#refresh = refresh;
    }

    /** Whether the control shows what its user does, whatever the server says. */
    get isHeld() {
        return this.#isDragging || this.#pending !== null || this.#underWay > 0;
    }

    /** Sets values while a control is moved: `parameters` are values by name. */
    drag(parameters) {
        this.#isDragging = true;
        this.#pending = {parameters: {...this.#pending?.parameters, ...parameters}, commit: false};
        this.#flush();
    }

    /** Sets values for good: one step of undo. */
    commit(parameters) {
        this.#isDragging = false;
        this.#pending = {parameters: {...this.#pending?.parameters, ...parameters}, commit: true};
        this.#flush();
    }

    #flush = oncePerDrawing(() => {
        if (this.#pending === null) return;
        // What is dragged waits for the connection; what is let go does not.
        if (!this.#pending.commit && (this.#underWay > 1 || studio.connection.unsent > 0)) {
            this.#flush();
            return;
        }
        const {parameters, commit} = this.#pending;
        this.#pending = null;
        this.#underWay++;
        const all = Object.entries(parameters);
        const what = all.length === 1 ? {name: all[0][0], values: all[0][1]} : {parameters};
        studio.tell('set', {link: this.link, ...what, commit, change: studio.nextChange()}).then(() => {
            this.#underWay--;
            if (!this.isHeld) this.#refresh();
        });
    });
}

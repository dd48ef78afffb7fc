// The chain: its links in their order, and the controls of the one that is open.

import {announce, byId, element, followPointer, icon, onTheme, setText} from '../base/dom.js';
import {Controls} from './controls.js';
import {openFileOf} from '../text/author.js';
import {studio} from '../base/studio.js';

const list = byId('chain');
const links = new Map(); // by identifier

function milliseconds(link) {
    return link.milliseconds === null || link.milliseconds === undefined || !link.on
        ? ''
        : `${link.milliseconds.toFixed(1)} ms`;
}

const placeOf = (id) => studio.state.chain.findIndex((link) => link.id === id);

function move(id, to) {
    const from = placeOf(id);
    const target = Math.min(studio.state.chain.length - 1, Math.max(0, to));
    if (from < 0 || from === target) return;
    studio.tell('move', {link: id, to: target, change: studio.nextChange()});
    announce(`${studio.link(id).name}, now number ${target + 1} of ${studio.state.chain.length}`);
}

// One link of the list.
class Row {
    constructor(link) {
        this.id = link.id;
        this.grip = element(
            'button',
            {
                type: 'button',
                class: 'grip',
                'aria-label': `Move ${link.name}`,
                title: 'Drag, or press the arrow keys',
                onkeydown: (event) => this.#moveByKey(event)
            },
            icon('M5 3h2v2H5zM9 3h2v2H9zM5 7h2v2H5zM9 7h2v2H9zM5 11h2v2H5zM9 11h2v2H9z')
        );
        this.on = element('input', {
            type: 'checkbox',
            'aria-label': `${link.name} is on`,
            onchange: () =>
                studio.tell('switch', {link: this.id, on: this.on.checked, change: studio.nextChange()})
        });
        this.name = element('span', {class: 'link-name', text: link.name});
        this.open = element(
            'button',
            {
                type: 'button',
                class: 'link-open',
                onclick: () => studio.select(studio.selected === this.id ? '' : this.id)
            },
            icon('M6 4l4 4-4 4z'),
            this.name,
            element('span', {class: 'link-kind quiet', text: link.kind === 'lut' ? 'LUT' : ''})
        );
        this.time = element('span', {class: 'link-time quiet'});
        this.remove = element('button', {
            type: 'button',
            class: 'small',
            'aria-label': `Remove ${link.name}`,
            title: 'Remove',
            text: '×',
            onclick: () => studio.tell('remove', {link: this.id, change: studio.nextChange()})
        });
        this.error = element('div', {class: 'link-error', role: 'alert', hidden: true});
        this.note = element('p', {class: 'link-note quiet', hidden: true});
        this.body = element('div', {class: 'link-body', id: `link-${link.id}`, hidden: true});
        this.open.setAttribute('aria-controls', this.body.id);
        this.root = element(
            'li',
            {class: 'link', 'data-link': link.id},
            element('div', {class: 'link-head'}, this.grip, this.on, this.open, this.time, this.remove),
            this.error,
            this.note,
            this.body
        );
        this.#watchDragging();
        this.controls = null;
    }

    #moveByKey(event) {
        const by = {ArrowUp: -1, ArrowDown: 1}[event.key];
        if (!by) return;
        event.preventDefault();
        event.stopPropagation();
        move(this.id, placeOf(this.id) + by);
    }

    #watchDragging() {
        let target = 0;
        const marked = () =>
            list.querySelector('.drop-before, .drop-after')?.classList.remove('drop-before', 'drop-after');
        followPointer(this.grip, {
            start: () => {
                target = placeOf(this.id);
                this.root.classList.add('dragged');
            },
            move: (event) => {
                marked();
                const rows = studio.state.chain.map(({id}) => links.get(id).root);
                const own = placeOf(this.id);
                let before = rows.findIndex((row) => {
                    const box = row.firstElementChild.getBoundingClientRect();
                    return event.clientY < box.top + box.height / 2;
                });
                if (before < 0) before = rows.length;
                target = before > own ? before - 1 : before;
                if (target !== own) rows[target].classList.add(target < own ? 'drop-before' : 'drop-after');
            },
            end: (event) => {
                marked();
                this.root.classList.remove('dragged');
                if (event.type === 'pointerup') move(this.id, target);
            }
        });
    }

    update(link) {
        const isOpen = studio.selected === this.id;
        this.on.checked = link.on;
        this.root.classList.toggle('off', !link.on);
        this.root.classList.toggle('open', isOpen);
        this.open.setAttribute('aria-expanded', String(isOpen));
        this.open.title = link.file;
        setText(this.name, link.name);
        setText(this.time, milliseconds(link));
        this.time.title = (link.passes ?? [])
            .filter((pass) => pass.milliseconds !== null)
            .map((pass) => `${pass.name}: ${pass.milliseconds.toFixed(2)} ms`)
            .join('\n');
        this.#showError(link);
        this.note.hidden = !(link.since > 0);
        setText(
            this.note,
            `Draws over its own result of the frame before, and has been drawn since frame ${link.since}. ` +
                'A conversion draws it from its first frame on: play from there to see the same.'
        );
        this.body.hidden = !isOpen;
        if (!isOpen) return;
        if (!this.controls) this.#fill(link);
        this.#showTechniques(link);
        this.controls.update(link);
    }

    #showError(link) {
        const texts = [...(link.error ? [link.error.text] : []), ...(link.warnings ?? [])];
        const wanted = JSON.stringify([link.error, texts]);
        if (this.error.dataset.shown === wanted) return;
        this.error.dataset.shown = wanted;
        this.error.hidden = texts.length === 0;
        this.error.classList.toggle('only-warning', !link.error);
        this.error.replaceChildren(
            ...texts.map((text) => element('p', {text: typeof text === 'string' ? text : text.text}))
        );
        if (link.error && link.editable)
            this.error.append(
                element('button', {type: 'button', text: 'Show in the text', onclick: () => openFileOf(link)})
            );
    }

    #fill(link) {
        this.technique = element('select', {
            'aria-label': 'Technique',
            onchange: () =>
                studio.tell('technique', {link: this.id, name: this.technique.value, change: studio.nextChange()})
        });
        this.techniqueLabel = element('label', {class: 'inline'}, 'technique ', this.technique);
        const tools = element(
            'div',
            {class: 'bar'},
            this.techniqueLabel,
            element('span', {class: 'stretch'}),
            link.editable
                ? element('button', {
                      type: 'button',
                      text: 'Text',
                      title: link.file,
                      onclick: () => openFileOf(link)
                  })
                : null,
            element('button', {
                type: 'button',
                text: 'Reset all',
                onclick: () => studio.tell('reset', {link: this.id, change: studio.nextChange()})
            })
        );
        this.controls = new Controls(link);
        this.body.replaceChildren(tools, this.controls.root);
    }

    #showTechniques(link) {
        const names = link.techniques ?? [];
        this.techniqueLabel.hidden = names.length < 2;
        if (this.technique.dataset.names !== names.join('\n')) {
            this.technique.dataset.names = names.join('\n');
            this.technique.replaceChildren(...names.map((name) => element('option', {value: name, text: name})));
        }
        this.technique.value = link.technique;
    }
}

function show() {
    if (!studio.state) return;
    const chain = studio.state.chain;
    for (const [id, row] of links) {
        if (!chain.some((link) => link.id === id)) {
            const hadFocus = row.root.contains(document.activeElement);
            row.root.remove();
            links.delete(id);
            if (hadFocus) byId('chain-add').focus();
        }
    }
    const focused = document.activeElement;
    chain.forEach((link, i) => {
        if (!links.has(link.id)) links.set(link.id, new Row(link));
        const row = links.get(link.id);
        if (list.children[i] !== row.root) list.insertBefore(row.root, list.children[i] ?? null);
        row.update(link);
    });
    if (focused && focused !== document.activeElement && list.contains(focused)) focused.focus();
    byId('chain-empty').hidden = chain.length > 0;
    byId('undo').disabled = !studio.state.canUndo;
    byId('redo').disabled = !studio.state.canRedo;
}

/** Switches the open link on or off. */
export function toggleSelected() {
    const link = studio.link(studio.selected);
    if (link) studio.tell('switch', {link: link.id, on: !link.on, change: studio.nextChange()});
}

export const undo = () => studio.tell('undo', {change: studio.nextChange()});
export const redo = () => studio.tell('redo', {change: studio.nextChange()});

export function startChain() {
    byId('undo').addEventListener('click', undo);
    byId('redo').addEventListener('click', redo);
    studio.on('session', () => {
        for (const row of links.values()) row.root.remove();
        links.clear();
    });
    studio.on('state', show);
    studio.on('selected', show);
    onTheme(show);
    studio.on('frame', () => {
        const row = links.get(studio.selected);
        if (row?.controls && studio.link(studio.selected)) row.controls.update(studio.link(studio.selected));
    });
}

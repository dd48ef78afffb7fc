// Code values under the pointer, or under a cross that the keyboard moves.

import {byId, clamp, element, oncePerDrawing, setText} from '../base/dom.js';
import {afterDrawing, clipPlace, stagePlace} from './picture.js';
import {studio} from '../base/studio.js';

const stage = byId('stage');

let at = null; // the pixel that is probed
let isHeld = false; // it stays where it is when the pointer moves
let asked = null;
let depth = null; // chosen by the user
const cells = {};

function build() {
    const head = (text) => element('th', {scope: 'col', text});
    const row = (name, text) => {
        const swatch = element('span', {class: 'swatch', 'aria-hidden': 'true'});
        cells[name] = {swatch};
        const numbers = ['r', 'g', 'b', 'y', 'cb', 'cr'].map((channel) => {
            cells[name][channel] = element('td', {
                class: `number ${channel}`,
                'data-probe': `${name}-${channel}`,
                text: '–'
            });
            return cells[name][channel];
        });
        return element('tr', {}, element('th', {scope: 'row'}, text, swatch), ...numbers);
    };
    cells.place = element('output', {class: 'probe-place', 'data-probe': 'place', text: 'x –  y –'});
    cells.depth = element(
        'select',
        {
            'aria-label': 'Bits of the codes',
            onchange: ({target}) => {
                depth = Number(target.value);
                ask();
            }
        }
    );
    showDepths(null);
    cells.hold = element('button', {
        type: 'button',
        'aria-pressed': 'false',
        title: 'Keep the probe where it is (P)',
        text: 'Hold',
        onclick: toggleHold
    });
    const table = element(
        'table',
        {},
        element('thead', {}, element('tr', {}, element('td'), ...['R', 'G', 'B', 'Y', 'Cb', 'Cr'].map(head))),
        element('tbody', {}, row('before', 'clip'), row('after', 'result'))
    );
    byId('probe').append(
        element(
            'div',
            {class: 'probe-tools'},
            cells.place,
            element('div', {class: 'probe-choice'}, cells.depth, cells.hold)
        ),
        table
    );
    cells.cross = element('div', {class: 'cross', hidden: true, 'aria-hidden': 'true'});
    stage.append(cells.cross);
}

// The depths that codes are shown with; `exact` is that of the clip's own codes, which may be another than the usual.
function showDepths(exact) {
    const depths = [...new Set([8, 10, 16, exact ?? 8])].sort((a, b) => a - b);
    const shown = depths.map((bits) => [bits, `${bits} bits${bits === exact ? ', exact' : ''}`]);
    if (JSON.stringify(shown) === cells.depth.dataset.shown) return;
    cells.depth.dataset.shown = JSON.stringify(shown);
    cells.depth.replaceChildren(...shown.map(([value, text]) => element('option', {value, text})));
    const ofClip = exact ?? studio.state?.clip.bits ?? 8;
    cells.depth.value = depths.includes(depth) ? depth : (depths.find((bits) => bits >= ofClip) ?? 16);
}

function show(answer) {
    showDepths(answer.exact);
    const bits = Number(cells.depth.value);
    for (const name of ['before', 'after']) {
        const codes = answer[name];
        const write = (channels, values) =>
            channels.forEach((channel, i) => setText(cells[name][channel], String(values[i])));
        write(['r', 'g', 'b'], codes[`rgb${bits}`]);
        write(['y', 'cb', 'cr'], codes[`ycbcr${bits}`]);
        cells[name].swatch.style.background = `rgb(${codes.rgb8.join(' ')})`;
    }
    byId('probe').dataset.answer = JSON.stringify(answer);
}

// One question at a time; the newest place is asked for next.
const ask = oncePerDrawing(async () => {
    if (!at || !studio.state || !studio.connection.isOpen || asked) return;
    setText(cells.place, `x ${at.x}  y ${at.y}`);
    asked = {...at};
    try {
        const answer = await studio.request('probe', asked);
        show(answer);
    } catch {
        // The connection is lost, or the clip is another: the next picture asks again.
    }
    const again = at && (at.x !== asked.x || at.y !== asked.y);
    asked = null;
    if (again) ask();
});

function moveTo(x, y) {
    const {width, height} = studio.state.clip;
    at = {x: clamp(Math.floor(x), 0, width - 1), y: clamp(Math.floor(y), 0, height - 1)};
    setText(cells.place, `x ${at.x}  y ${at.y}`);
    placeCross();
    ask();
}

function placeCross() {
    cells.cross.hidden = !isHeld || !at || !studio.state;
    if (cells.cross.hidden) return;
    const place = stagePlace(at.x + 0.5, at.y + 0.5);
    const size = Math.max(9, place.pixel + 2);
    Object.assign(cells.cross.style, {
        left: `${place.x}px`,
        top: `${place.y}px`,
        width: `${size}px`,
        height: `${size}px`
    });
}

function setHeld(held) {
    isHeld = held;
    cells.hold.setAttribute('aria-pressed', String(held));
    placeCross();
}

/** Keeps the probe where it is, or lets it follow the pointer again. */
export function toggleHold() {
    if (!at && studio.state) moveTo(studio.state.clip.width / 2, studio.state.clip.height / 2);
    setHeld(!isHeld);
}

/** Moves the probe by pixels, from the middle if it is nowhere yet. */
export function moveProbe(x, y) {
    if (!studio.state) return;
    const from = at ?? {x: Math.floor(studio.state.clip.width / 2), y: Math.floor(studio.state.clip.height / 2)};
    if (!isHeld) setHeld(true);
    moveTo(from.x + x, from.y + y);
}

export function startProbe() {
    build();
    const follow = (event) => {
        if (isHeld || !studio.state) return;
        const place = clipPlace(event.clientX, event.clientY);
        if (place) moveTo(place.x, place.y);
    };
    stage.addEventListener('pointermove', follow);
    stage.addEventListener('pointerdown', follow);
    studio.on('state', ask);
    studio.on('picture', ask);
    afterDrawing(placeCross);
}

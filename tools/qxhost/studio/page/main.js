// Starts the page: the head, the connection, and the keys.

import {isTextFocused, startAuthor, writeFile} from './text/author.js';
import {redo, startChain, toggleSelected, undo} from './grade/chain.js';
import {isDialogOpen, openHelp, saveLook, startDialogs} from './grade/dialogs.js';
import {byId, element, setText} from './base/dom.js';
import {remembered} from './base/memory.js';
import {pan, startPicture, toggleFullScreen, zoomStep, zoomToFit, zoomToPixels} from './picture/picture.js';
import {moveProbe, startProbe, toggleHold} from './picture/probe.js';
import {startScopes} from './picture/scopes.js';
import {keepStill, startStills} from './picture/stills.js';
import {studio} from './base/studio.js';
import {startTabs} from './base/tabs.js';
import {
    clearRange,
    setIn,
    setOut,
    startTransport,
    step,
    stepSecond,
    toggleLoop,
    togglePlay,
    toIn,
    toOut
} from './picture/transport.js';

const compare = (way) => () => studio.setCompare({way: studio.compare.way === way ? 'none' : way});

// [keys as shown, meaning, key, action]; without a key the line is only shown.
const keys = [
    ['Space', 'play or pause', ' ', togglePlay],
    ['← →', 'one frame back or on', 'ArrowLeft', () => step(-1)],
    [null, null, 'ArrowRight', () => step(1)],
    ['PageUp PageDown', 'one second back or on', 'PageUp', () => stepSecond(-1)],
    [null, null, 'PageDown', () => stepSecond(1)],
    ['Home End', 'to the in or out point', 'Home', toIn],
    [null, null, 'End', toOut],
    ['I O X', 'in point here, out point here, the whole clip', 'i', setIn],
    [null, null, 'o', setOut],
    [null, null, 'x', clearRange],
    ['L', 'loop', 'l', toggleLoop],
    ['+ −', 'zoom', '+', () => zoomStep(1)],
    [null, null, '-', () => zoomStep(-1)],
    ['0 1', 'the whole picture, its pixels', '0', zoomToFit],
    [null, null, '1', () => zoomToPixels()],
    ['F', 'full screen', 'f', toggleFullScreen],
    ['W B D', 'wipe, side by side, difference; again: off', 'w', compare('wipe')],
    [null, null, 'b', compare('side')],
    [null, null, 'd', compare('difference')],
    [null, null, 'a', () => studio.setCompare({way: 'none'})],
    ['S', 'keep a still', 's', keepStill],
    ['P', 'hold the probe', 'p', toggleHold],
    ['E', 'switch the open effect on or off', 'e', toggleSelected],
    ['?', 'these keys', '?', () => openHelp(shownKeys)]
];
const shownKeys = [
    ...keys.filter(([shown]) => shown).map(([shown, text]) => [shown, text]),
    ['Ctrl+Z', 'undo'],
    ['Ctrl+Shift+Z', 'redo'],
    ['Ctrl+S', 'save the look; in the text, write the file'],
    ['Shift+arrows', 'on the picture: move the probe'],
    ['Ctrl+arrows', 'on the picture: move the picture'],
    ['arrows', 'on a control: a step; with Shift ten']
];

const isTyping = (target) =>
    target.closest(
        'input:not([type=range],[type=checkbox],[type=radio],[type=color]),textarea,select,.CodeMirror'
    );

function withControl(event) {
    const key = event.key.toLowerCase();
    if (key === 's') {
        event.preventDefault();
        if (isTextFocused()) writeFile();
        else saveLook();
    } else if ((key === 'z' || key === 'y') && !isTyping(event.target)) {
        event.preventDefault();
        if (key === 'y' || event.shiftKey) redo();
        else undo();
    } else if (event.target === byId('stage')) {
        const by = {arrowleft: [-0.1, 0], arrowright: [0.1, 0], arrowup: [0, -0.1], arrowdown: [0, 0.1]}[key];
        if (by) {
            event.preventDefault();
            pan(...by);
        }
    }
}

function watchKeys() {
    document.addEventListener('keydown', (event) => {
        if (isDialogOpen() || event.defaultPrevented || !studio.state || event.altKey) return;
        if (event.ctrlKey || event.metaKey) {
            withControl(event);
            return;
        }
        const target = event.target;
        if (isTyping(target)) return;
        if (target === byId('stage') && event.shiftKey) {
            const by = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]}[event.key];
            if (by) {
                event.preventDefault();
                moveProbe(...by);
                return;
            }
        }
        const isPressed = event.key === ' ' && target.closest('button,input,summary,[role=slider]');
        const isMoved =
            /^(Arrow|Page|Home|End)/.test(event.key) &&
            target.closest('input,[role=slider],[role=separator],[role=tab]');
        if (isPressed || isMoved) return;
        const isSingle = event.key.length === 1;
        if (isSingle && remembered('single-keys') === 'off') return;
        const found = keys.find(
            ([, , key]) =>
                key === event.key ||
                (key === '+' && event.key === '=') ||
                (isSingle && key === event.key.toLowerCase())
        );
        if (found) {
            event.preventDefault();
            found[3]();
        }
    });
}

function showHead() {
    const {clip, device, look, changed} = studio.state;
    setText(byId('clip-name'), clip.name);
    const rate = clip.still ? 'still' : `${Number((clip.rate[0] / clip.rate[1]).toFixed(3))} fps`;
    const guessed = (isGuessed) => (isGuessed ? ' (guessed)' : '');
    const matrix = clip.isRgb ? 'RGB' : clip.matrix.replace('bt', 'BT.') + guessed(clip.matrixGuessed);
    const colour = `${matrix} ${clip.range}${guessed(clip.rangeGuessed)}`;
    const turned = clip.unturned ? ' · players turn it' : '';
    setText(
        byId('clip-facts'),
        `${clip.width} × ${clip.height} · ${rate} · ${clip.bits} bits · ${colour}${turned} · ${device}`
    );
    byId('clip-facts').title = byId('clip-facts').textContent;
    const file = look ? look.split('/').at(-1) : '';
    const unsaved = file ? `${file} *` : 'not saved';
    setText(byId('look-name'), changed ? unsaved : file || 'no look');
    byId('look-name').title = changed ? `${look || 'The chain'} has changes that are not saved` : look;
    document.title = `${clip.name}: studio`;
}

const shownProblems = new Map();

// A problem stays until it is put away; the server's own go when the server no longer has them.
function showProblem(problem, isOfServer = false) {
    const text = typeof problem === 'string' ? problem : [problem.text, ...(problem.details ?? [])].join('\n');
    if (shownProblems.has(text)) return text;
    const root = element(
        'div',
        {class: 'problem'},
        element('span', {text}),
        element('button', {
            type: 'button',
            class: 'small',
            'aria-label': 'Put the message away',
            text: '×',
            onclick: () => {
                root.remove();
                if (!isOfServer) shownProblems.delete(text);
            }
        })
    );
    shownProblems.set(text, {root, isOfServer});
    byId('problems').append(root);
    return text;
}

function showServersProblems() {
    const texts = new Set((studio.state.problems ?? []).map((problem) => showProblem(problem, true)));
    for (const [text, {root, isOfServer}] of shownProblems) {
        if (isOfServer && !texts.has(text)) {
            root.remove();
            shownProblems.delete(text);
        }
    }
}

function watchConnection() {
    const banner = byId('connection');
    let wasOpen = false;
    studio.on('open', () => {
        wasOpen = true;
        banner.hidden = true;
        document.body.dataset.connection = 'open';
    });
    studio.on('close', (delay) => {
        banner.hidden = false;
        document.body.dataset.connection = 'closed';
        const next = delay < 1000 ? 'Trying again' : `The next attempt is in ${Math.round(delay / 1000)} s`;
        setText(
            byId('connection-text'),
            wasOpen
                ? `The connection to the server is lost. What is shown is the last picture. ${next}.`
                : `The server does not answer. ${next}.`
        );
    });
    byId('connection-retry').addEventListener('click', () => studio.connection.open());
    studio.on('problem', (problem) => showProblem(problem));
}

startTabs();
startPicture();
startProbe();
startTransport();
startChain();
startDialogs();
startStills();
startScopes();
startAuthor();
watchConnection();
watchKeys();
byId('help-open').addEventListener('click', () => openHelp(shownKeys));
studio.on('state', () => {
    showHead();
    showServersProblems();
});
studio.connection.open();

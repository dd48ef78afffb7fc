// Playing, stepping, scrubbing, the range, and the marks of key frames on the time line.

import {byId, clamp, element, fitCanvas, onTheme, oncePerDrawing, setText, themeColour} from '../base/dom.js';
import {studio} from '../base/studio.js';
import {frameOf, timeCodeOf} from '../base/timecode.js';

const scrub = byId('scrub');
const time = byId('time');
let isScrubbing = false;
let seeking = {busy: false, wanted: null};

const lastFrame = () => (studio.state.clip.frames === null ? null : studio.state.clip.frames - 1);
const inPoint = () => studio.state.in ?? 0;
const outPoint = () => studio.state.out ?? lastFrame() ?? studio.frame;

/** Goes to a frame; of many that are asked for while the server seeks, the newest counts. */
export async function seek(frame) {
    if (!studio.state) return;
    seeking.wanted = clamp(Math.round(frame), 0, lastFrame());
    showFrame(seeking.wanted);
    if (seeking.busy) return;
    seeking.busy = true;
    while (seeking.wanted !== null) {
        const wanted = seeking.wanted;
        seeking.wanted = null;
        await studio.tell('seek', {frame: wanted});
    }
    seeking.busy = false;
}

export const step = (by) => studio.tell('step', {by});
export const stepSecond = (by) =>
    studio.tell('step', {by: by * Math.round(studio.state.clip.rate[0] / studio.state.clip.rate[1])});
export const toIn = () => seek(inPoint());
export const toOut = () => seek(outPoint());
export const togglePlay = () => studio.tell(studio.state?.playing ? 'pause' : 'play');
export const toggleLoop = () => studio.tell('loop', {on: !studio.state.loop});
export const setIn = () => studio.tell('range', {in: studio.frame, out: Math.max(studio.frame, outPoint())});
export const setOut = () => studio.tell('range', {in: Math.min(studio.frame, inPoint()), out: studio.frame});
export const clearRange = () => studio.tell('range', {in: null, out: null});

function showFrame(frame) {
    const clip = studio.state.clip;
    const code = timeCodeOf(frame, clip);
    if (document.activeElement !== time || !time.dataset.typed) time.value = code;
    setText(byId('frame'), clip.frames === null ? `frame ${frame}` : `frame ${frame} of ${clip.frames}`);
    scrub.value = frame;
    scrub.setAttribute('aria-valuetext', `${code}, frame ${frame}`);
    drawMarks();
}

// The ends of the range, and the keys of the open link: those of each parameter once a frame.
const drawMarks = oncePerDrawing(() => {
    const {context, width, height, scale} = fitCanvas(byId('marks'));
    context.clearRect(0, 0, width, height);
    if (!studio.state || !studio.state.clip.frames) return;
    const count = Math.max(1, studio.state.clip.frames - 1);
    // The middle of the thumb of a range lies half a thumb inside its ends.
    const margin = 7 * scale;
    const at = (frame) => margin + (frame / count) * (width - 2 * margin);
    const middle = (scrub.offsetTop + scrub.offsetHeight / 2) * scale;
    context.fillStyle = themeColour('--range');
    context.fillRect(
        at(inPoint()),
        middle - 2 * scale,
        Math.max(scale, at(outPoint()) - at(inPoint())),
        4 * scale
    );
    context.fillStyle = themeColour('--key');
    const link = studio.link(studio.selected);
    for (const key of (link?.parameters ?? []).flatMap((parameter) => parameter.keys ?? [])) {
        const x = at(key.frame);
        context.beginPath();
        context.moveTo(x, 0);
        context.lineTo(x + 4 * scale, 4 * scale);
        context.lineTo(x, 8 * scale);
        context.lineTo(x - 4 * scale, 4 * scale);
        context.fill();
    }
});

function fillSizes() {
    const {width, height} = studio.state.clip;
    const sizes = [[null, `full, ${width} × ${height}`]];
    for (const lines of [1080, 720, 540, 360]) {
        if (lines >= height) continue;
        const wide = Math.max(2, Math.round((width * lines) / height / 2) * 2);
        sizes.push([[wide, lines], `${wide} × ${lines}`]);
    }
    const now = studio.state.proxy;
    if (now && !sizes.some(([size]) => JSON.stringify(size) === JSON.stringify(now)))
        sizes.push([now, now.join(' × ')]);
    const options = sizes.map(([size, text]) => element('option', {value: JSON.stringify(size), text}));
    if (byId('proxy').options.length !== options.length || byId('proxy').dataset.clip !== `${width} ${height}`)
        byId('proxy').replaceChildren(...options);
    byId('proxy').dataset.clip = `${width} ${height}`;
    byId('proxy').value = JSON.stringify(now);
}

function showState() {
    const {clip, playing, loop} = studio.state;
    scrub.max = Math.max(0, lastFrame() ?? studio.frame);
    scrub.disabled = clip.frames === null || clip.frames < 2;
    byId('play').classList.toggle('playing', playing);
    byId('play').setAttribute('aria-label', playing ? 'Pause' : 'Play');
    byId('loop').setAttribute('aria-pressed', String(Boolean(loop)));
    for (const id of ['play', 'back', 'on', 'to-in', 'to-out', 'loop', 'set-in', 'set-out', 'clear-range'])
        byId(id).disabled = clip.still || clip.frames === 1;
    fillSizes();
    if (!isScrubbing && seeking.wanted === null && !seeking.busy) showFrame(studio.frame);
    drawMarks();
}

function watchTime() {
    time.addEventListener('input', () => {
        time.dataset.typed = 'yes';
    });
    const forget = () => {
        delete time.dataset.typed;
        time.setCustomValidity('');
        showFrame(studio.frame);
    };
    time.addEventListener('blur', forget);
    time.addEventListener('focus', () => time.select());
    time.addEventListener('keydown', (event) => {
        if (event.key === 'Escape') {
            forget();
        } else if (event.key === 'Enter') {
            const frame = frameOf(time.value, studio.state.clip);
            const last = lastFrame();
            if (frame === null || frame < 0 || (last !== null && frame > last)) {
                time.setCustomValidity(
                    `Expected a frame${last === null ? '' : ` from 0 to ${last}`} or a time code of the clip`
                );
                time.reportValidity();
                return;
            }
            delete time.dataset.typed;
            seek(frame);
        }
    });
}

export function startTransport() {
    const actions = {
        'play': togglePlay,
        'back': () => step(-1),
        'on': () => step(1),
        'to-in': toIn,
        'to-out': toOut,
        'loop': toggleLoop,
        'set-in': setIn,
        'set-out': setOut,
        'clear-range': clearRange
    };
    for (const [id, action] of Object.entries(actions)) byId(id).addEventListener('click', action);
    scrub.addEventListener('input', () => {
        isScrubbing = true;
        seek(Number(scrub.value));
    });
    scrub.addEventListener('change', () => {
        isScrubbing = false;
    });
    byId('proxy').addEventListener('change', ({target}) => studio.tell('proxy', {size: JSON.parse(target.value)}));
    watchTime();
    new ResizeObserver(drawMarks).observe(byId('marks'));
    studio.on('state', showState);
    studio.on('selected', drawMarks);
    onTheme(drawMarks);
    studio.on('frame', () => {
        if (!isScrubbing && seeking.wanted === null) showFrame(studio.frame);
    });
}

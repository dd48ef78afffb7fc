// The picture: what the server sends, at its place; zoom, comparing, full screen.

import {announce, byId, clamp, element, followPointer, oncePerDrawing, setText, shortened} from '../base/dom.js';
import {studio} from '../base/studio.js';

const canvas = byId('picture');
const stage = byId('stage');
const wipe = byId('wipe');

// What is shown: `scale` in device pixels per pixel of the clip, null to fit; (x, y) the clip's place in the middle.
const view = {scale: null, x: 0, y: 0};
let wipeAt = 0.5;
// The newest pictures of each kind, and the newest of the whole frame to lie behind those of a region.
const shown = {after: null, before: null, difference: null};
const whole = {after: null, before: null, difference: null};
const rate = {times: [], sent: null};
const listeners = [];

const clipSize = () => ({width: studio.state.clip.width, height: studio.state.clip.height});

// How much wider than high a pixel of the clip is.
function pixelAspect() {
    const [width, height] = studio.state.clip.aspect ?? [1, 1];
    return width / height;
}

// The places of the pictures on the canvas: one, or two beside or above each other, whichever is larger.
function panes() {
    const {width, height} = canvas;
    if (studio.compare.way === 'difference') return [{of: 'difference', x: 0, y: 0, width, height}];
    if (studio.compare.way !== 'side') return [{of: 'after', x: 0, y: 0, width, height}];
    const gap = 2;
    const clip = clipSize();
    const beside = {width: (width - gap) / 2, height};
    const above = {width, height: (height - gap) / 2};
    const fits = (place) => Math.min(place.width / clip.width / pixelAspect(), place.height / clip.height);
    if (fits(beside) >= fits(above)) {
        return [
            {of: 'before', x: 0, y: 0, ...beside},
            {of: 'after', x: beside.width + gap, y: 0, ...beside}
        ];
    }
    return [
        {of: 'before', x: 0, y: 0, ...above},
        {of: 'after', x: 0, y: above.height + gap, ...above}
    ];
}

function fittingScale() {
    const place = panes()[0];
    const clip = clipSize();
    return Math.min(place.width / clip.width / pixelAspect(), place.height / clip.height);
}

// Device pixels per pixel of the clip, down and across.
const scaleNow = () => view.scale ?? fittingScale();
const scaleAcross = () => scaleNow() * pixelAspect();

// Keeps the picture in its place: centred where it is smaller, without a gap where it is larger.
function settle() {
    const place = panes()[0];
    const clip = clipSize();
    const within = (at, size, room, scale) => {
        const half = room / scale / 2;
        return half * 2 >= size ? size / 2 : clamp(at, half, size - half);
    };
    view.x = within(view.x, clip.width, place.width, scaleAcross());
    view.y = within(view.y, clip.height, place.height, scaleNow());
}

// The part of the clip that is seen, in whole pixels; null if all of it is.
function region() {
    if (view.scale === null) return null;
    const place = panes()[0];
    const clip = clipSize();
    const left = clamp(Math.floor(view.x - place.width / scaleAcross() / 2), 0, clip.width - 1);
    const top = clamp(Math.floor(view.y - place.height / view.scale / 2), 0, clip.height - 1);
    const right = clamp(Math.ceil(view.x + place.width / scaleAcross() / 2), left + 1, clip.width);
    const bottom = clamp(Math.ceil(view.y + place.height / view.scale / 2), top + 1, clip.height);
    const all = left === 0 && top === 0 && right === clip.width && bottom === clip.height;
    return all ? null : [left, top, right - left, bottom - top];
}

const sendView = oncePerDrawing(() => {
    if (!studio.state || !studio.connection.isOpen) return;
    const place = panes()[0];
    const message = {
        width: Math.max(1, Math.floor(place.width)),
        height: Math.max(1, Math.floor(place.height)),
        region: region(),
        compare: studio.compare.way,
        times: studio.compare.times,
        against: studio.compare.against === 'before' ? 'before' : Number(studio.compare.against),
        quality: studio.quality
    };
    const text = JSON.stringify(message);
    if (text === rate.sent) return;
    rate.sent = text;
    studio.tell('view', message);
});

function place(context, pane, picture) {
    const scale = scaleNow();
    const [x, y, width, height] = picture.header.region;
    const across = scaleAcross();
    const left = pane.x + pane.width / 2 + (x - view.x) * across;
    const top = pane.y + pane.height / 2 + (y - view.y) * scale;
    // Pixels are shown as squares as soon as one is seen as more than one.
    context.imageSmoothingEnabled = !(scale > 1 && picture.header.width >= width);
    context.imageSmoothingQuality = 'high';
    context.drawImage(
        picture.bitmap,
        Math.round(left),
        Math.round(top),
        Math.round(width * across),
        Math.round(height * scale)
    );
}

function drawPane(context, pane, clipTo) {
    context.save();
    context.beginPath();
    const area = clipTo ?? pane;
    context.rect(area.x, area.y, area.width, area.height);
    context.clip();
    const newest = shown[pane.of];
    if (newest) {
        if (whole[pane.of] && whole[pane.of] !== newest) place(context, pane, whole[pane.of]);
        place(context, pane, newest);
    }
    context.restore();
}

const draw = oncePerDrawing(() => {
    const context = canvas.getContext('2d');
    context.clearRect(0, 0, canvas.width, canvas.height);
    if (!studio.state) return;
    settle();
    for (const pane of panes()) drawPane(context, pane);
    if (studio.compare.way === 'wipe') {
        const all = panes()[0];
        drawPane(
            context,
            {...all, of: 'before'},
            {x: 0, y: 0, width: Math.round(wipePlace()), height: canvas.height}
        );
    }
    if (studio.compare.way === 'side' || studio.compare.way === 'wipe') drawNames(context);
    wipe.hidden = studio.compare.way !== 'wipe';
    wipe.style.left = `${(wipePlace() / canvas.width) * 100}%`;
    const text =
        view.scale === null
            ? 'fit'
            : `${view.scale >= 1 ? Math.round(view.scale * 100) : (view.scale * 100).toFixed(0)} %`;
    setText(byId('zoom'), text);
    for (const listener of listeners) listener();
});

// Says in the lower corners which picture is which.
function drawNames(context) {
    const scale = window.devicePixelRatio || 1;
    const all = panes();
    const names = [byId('against').selectedOptions[0]?.textContent ?? '', 'the result'];
    context.font = `${11 * scale}px system-ui, sans-serif`;
    context.textAlign = 'left';
    context.textBaseline = 'bottom';
    const write = (name, x, y, align) => {
        const width = context.measureText(name).width;
        const left = align === 'left' ? x : x - width;
        context.fillStyle = 'rgb(0 0 0 / 60%)';
        context.fillRect(left - 5 * scale, y - 15 * scale, width + 10 * scale, 18 * scale);
        context.fillStyle = '#fff';
        context.fillText(name, left, y);
    };
    if (all.length === 2) {
        all.forEach((pane, i) => write(names[i], pane.x + 8 * scale, pane.y + pane.height - 6 * scale, 'left'));
    } else {
        write(names[0], 8 * scale, canvas.height - 6 * scale, 'left');
        write(names[1], canvas.width - 8 * scale, canvas.height - 6 * scale, 'right');
    }
}

// The wipe's place on the canvas, which lies on the picture and moves with it.
function wipePlace() {
    const clip = clipSize();
    return clamp(canvas.width / 2 + (wipeAt * clip.width - view.x) * scaleAcross(), 0, canvas.width);
}

function setWipe(at) {
    wipeAt = clamp(at, 0, 1);
    wipe.setAttribute('aria-valuenow', Math.round(wipeAt * 100));
    draw();
}

// A place of the window in CSS pixels as one of the canvas, in device pixels.
function canvasPlace(clientX, clientY) {
    const box = canvas.getBoundingClientRect();
    return {
        x: ((clientX - box.left) * canvas.width) / box.width,
        y: ((clientY - box.top) * canvas.height) / box.height
    };
}

const isIn = ({x, y}, pane) => x >= pane.x && y >= pane.y && x < pane.x + pane.width && y < pane.y + pane.height;

// The clip's place, perhaps outside the picture, that a pane shows at a place of the canvas.
const placeIn = (pane, {x, y}) => ({
    x: view.x + (x - pane.x - pane.width / 2) / scaleAcross(),
    y: view.y + (y - pane.y - pane.height / 2) / scaleNow()
});

/** The clip's place under a place of the window in CSS pixels, with fractions; null outside the picture. */
export function clipPlace(clientX, clientY) {
    const seen = canvasPlace(clientX, clientY);
    const pane = panes().find((one) => isIn(seen, one));
    if (!pane) return null;
    const clip = clipSize();
    const at = placeIn(pane, seen);
    return at.x >= 0 && at.y >= 0 && at.x < clip.width && at.y < clip.height ? at : null;
}

/** Where a place of the clip lies in the stage, in CSS pixels, in the pane of the result. */
export function stagePlace(x, y) {
    const pane = panes().at(-1);
    const scale = canvas.clientWidth / canvas.width;
    return {
        x: (pane.x + pane.width / 2 + (x - view.x) * scaleAcross()) * scale,
        y: (pane.y + pane.height / 2 + (y - view.y) * scaleNow()) * scale,
        pixel: scaleNow() * scale
    };
}

/** Calls a function after each drawing of the picture. */
export const afterDrawing = (listener) => listeners.push(listener);

/** Zooms to a scale (null: the whole picture), keeping a place of the clip where it is seen. */
function zoomTo(scale, around = null) {
    const from = scaleNow();
    const fit = fittingScale();
    let to = scale === null ? null : clamp(scale, Math.min(fit, 0.1), 64);
    if (to !== null && to <= fit && scale !== 1) to = null;
    if (around && to !== null) {
        view.x = around.x + ((view.x - around.x) * from) / to;
        view.y = around.y + ((view.y - around.y) * from) / to;
    }
    view.scale = to;
    changed();
}

export function zoomStep(direction, around = null) {
    const steps = [0.125, 0.25, 0.5, 0.75, 1, 1.5, 2, 3, 4, 6, 8, 12, 16, 24, 32, 48, 64];
    const from = scaleNow();
    const to =
        direction > 0 ? steps.find((step) => step > from * 1.01) : steps.findLast((step) => step < from * 0.99);
    zoomTo(to ?? (direction > 0 ? 64 : null), around);
    announce(`Zoom ${byId('zoom').textContent}`);
}

export const zoomToFit = () => zoomTo(null);
export const zoomToPixels = (around = null) => zoomTo(1, around);

/** Moves the picture by parts of its place. */
export function pan(x, y) {
    const pane = panes()[0];
    view.x += (x * pane.width) / scaleAcross();
    view.y += (y * pane.height) / scaleNow();
    changed();
}

function changed() {
    settle();
    draw();
    sendView();
}

export function toggleFullScreen() {
    const viewer = document.querySelector('.viewer');
    if (document.fullscreenElement) document.exitFullscreen();
    else viewer.requestFullscreen?.().catch(() => announce('The browser does not allow full screen here'));
}

// Pictures are decoded one after the other; one that came while another was decoded replaces those that wait.
const arrived = {waiting: new Map(), busy: false};

async function decodeAll() {
    if (arrived.busy) return;
    arrived.busy = true;
    while (arrived.waiting.size) {
        const [[of, picture]] = arrived.waiting;
        arrived.waiting.delete(of);
        try {
            show(picture.header, await createImageBitmap(picture.jpeg));
        } catch (error) {
            studio.emit('problem', {text: `a picture could not be decoded: ${error.message}`});
        }
        studio.tell('shown', {frame: picture.header.frame, of});
    }
    arrived.busy = false;
}

function show(header, bitmap) {
    const clip = clipSize();
    const picture = {header, bitmap};
    const old = shown[header.of];
    shown[header.of] = picture;
    const isWhole = header.region[2] >= clip.width && header.region[3] >= clip.height;
    if (old && old !== whole[header.of]) old.bitmap.close();
    if (isWhole) {
        whole[header.of]?.bitmap.close();
        whole[header.of] = picture;
    }
    byId('stage-text').hidden = true;
    canvas.dataset[header.of] = JSON.stringify(header);
    if (header.of !== 'before') studio.setFrame(header.frame);
    countSpeed(header);
    draw();
}

function countSpeed(header) {
    const now = performance.now();
    rate.times = rate.times.filter((time) => now - time < 1000).concat(now);
    const spent = header.milliseconds ?? {};
    const part = (name) => `${name} ${(spent[name] ?? 0).toFixed(1)}`;
    const sum = Object.values(spent).reduce((a, b) => a + b, 0);
    setText(byId('speed'), `${sum.toFixed(0)} ms` + (studio.state.playing ? ` · ${rate.times.length}/s` : ''));
    byId('speed').title =
        `The last picture: ${['decode', 'draw', 'encode'].map(part).join(', ')} milliseconds` +
        ' on the server; pictures in the last second';
}

// The old clip's pictures are of no use to a new server.
function forget() {
    rate.sent = null;
    const clip = JSON.stringify(studio.state.clip);
    if (canvas.dataset.clip === clip) return;
    canvas.dataset.clip = clip;
    for (const of of Object.keys(shown)) {
        shown[of]?.bitmap.close();
        if (whole[of] !== shown[of]) whole[of]?.bitmap.close();
        shown[of] = whole[of] = null;
        delete canvas.dataset[of];
    }
}

function fillCompare() {
    const ways = [
        ['none', 'Off', 3, 'A'],
        ['wipe', 'Wipe', 4, 'W'],
        ['side', 'Side by side', 4, 'B'],
        ['difference', 'Difference', 4, 'D']
    ];
    for (const [way, text, length, key] of ways) {
        const input = element('input', {
            type: 'radio',
            name: 'compare',
            value: way,
            onchange: () => studio.setCompare({way})
        });
        byId('compare').append(
            element('label', {title: `${text} (${key})`}, input, element('span', {}, ...shortened(text, length)))
        );
    }
    byId('against').addEventListener('change', ({target}) => studio.setCompare({against: target.value}));
    byId('times').addEventListener('change', ({target}) => {
        const times = clamp(Math.round(Number(target.value)) || 1, 1, 64);
        target.value = times;
        studio.setCompare({times});
    });
}

function showCompare() {
    for (const input of byId('compare').querySelectorAll('input'))
        input.checked = input.value === studio.compare.way;
    byId('times-label').hidden = studio.compare.way !== 'difference';
    byId('against-label').hidden = studio.compare.way === 'none';
    const chosen = byId('against');
    const names = [['before', 'the clip'], ...(studio.state?.stills ?? []).map((still) => [still.id, still.name])];
    const wanted = JSON.stringify(names);
    if (chosen.dataset.names !== wanted) {
        chosen.dataset.names = wanted;
        chosen.replaceChildren(...names.map(([value, text]) => element('option', {value, text})));
    }
    if (!names.some(([id]) => String(id) === String(studio.compare.against))) studio.compare.against = 'before';
    chosen.value = studio.compare.against;
}

// Two fingers zoom, one moves the picture where it is larger than its place. Each move counts from the place of the clip
// that lay between the fingers when the last of them came or went: it stays between them, whichever finger's move comes
// first, also after the picture has met the edges of its place.
function watchPointers() {
    const down = new Map();
    let start = null;
    const gathered = () => {
        const points = [...down.values()];
        const x = points.reduce((sum, p) => sum + p.x, 0) / points.length;
        const y = points.reduce((sum, p) => sum + p.y, 0) / points.length;
        const spread = points.length < 2 ? 0 : Math.hypot(points[0].x - points[1].x, points[0].y - points[1].y);
        return {middle: canvasPlace(x, y), spread};
    };
    const begin = () => {
        start = null;
        if (!down.size) return;
        const {middle, spread} = gathered();
        const pane = Math.max(
            0,
            panes().findIndex((one) => isIn(middle, one))
        );
        start = {pane, spread, scale: scaleNow(), place: placeIn(panes()[pane], middle)};
    };
    stage.addEventListener('pointerdown', (event) => {
        if (event.target === wipe || event.button !== 0) return;
        down.set(event.pointerId, {x: event.clientX, y: event.clientY});
        stage.setPointerCapture(event.pointerId);
        begin();
    });
    stage.addEventListener('pointermove', (event) => {
        if (!down.has(event.pointerId)) return;
        down.set(event.pointerId, {x: event.clientX, y: event.clientY});
        const {middle, spread} = gathered();
        if (spread && start.spread) zoomTo((start.scale * spread) / start.spread);
        const seen = placeIn(panes()[start.pane] ?? panes()[0], middle);
        view.x += start.place.x - seen.x;
        view.y += start.place.y - seen.y;
        changed();
    });
    const up = (event) => {
        down.delete(event.pointerId);
        begin();
    };
    stage.addEventListener('pointerup', up);
    stage.addEventListener('pointercancel', up);
    stage.addEventListener('dblclick', (event) => {
        if (event.target !== wipe) zoomTo(view.scale === null ? 1 : null, clipPlace(event.clientX, event.clientY));
    });
    stage.addEventListener(
        'wheel',
        (event) => {
            event.preventDefault();
            zoomTo(scaleNow() * Math.exp(-event.deltaY / 300), clipPlace(event.clientX, event.clientY));
        },
        {passive: false}
    );
}

function watchWipe() {
    followPointer(wipe, {
        start: (event) => event.stopPropagation(),
        move: (event) => {
            const {x} = canvasPlace(event.clientX, event.clientY);
            setWipe((view.x + (x - canvas.width / 2) / scaleAcross()) / clipSize().width);
        }
    });
    wipe.addEventListener('keydown', (event) => {
        const by = {
            ArrowLeft: -0.01,
            ArrowDown: -0.01,
            ArrowRight: 0.01,
            ArrowUp: 0.01,
            PageUp: 0.1,
            PageDown: -0.1
        }[event.key];
        if (by === undefined && event.key !== 'Home' && event.key !== 'End') return;
        event.preventDefault();
        event.stopPropagation();
        setWipe(by === undefined ? (event.key === 'Home' ? 0 : 1) : wipeAt + by);
    });
    wipe.addEventListener('dblclick', () => setWipe(0.5));
}

export function startPicture() {
    fillCompare();
    watchPointers();
    watchWipe();
    new ResizeObserver(() => {
        const scale = window.devicePixelRatio || 1;
        canvas.width = Math.max(1, Math.round(stage.clientWidth * scale));
        canvas.height = Math.max(1, Math.round(stage.clientHeight * scale));
        draw();
        sendView();
    }).observe(stage);
    byId('zoom-in').addEventListener('click', () => zoomStep(1));
    byId('zoom-out').addEventListener('click', () => zoomStep(-1));
    byId('zoom-fit').addEventListener('click', zoomToFit);
    byId('zoom-one').addEventListener('click', () => zoomToPixels());
    byId('full-screen').addEventListener('click', toggleFullScreen);
    byId('quality').addEventListener('change', ({target}) => {
        studio.quality = Number(target.value);
        sendView();
    });
    studio.on('open', () => {
        rate.sent = null;
        arrived.waiting.clear();
        sendView();
    });
    studio.on('session', () => {
        forget();
        sendView();
    });
    studio.on('state', () => {
        showCompare();
        draw();
        sendView();
    });
    studio.on('compare', () => {
        showCompare();
        draw();
        sendView();
    });
    studio.on('picture', (picture) => {
        arrived.waiting.set(picture.header.of, picture);
        decodeAll();
    });
    showCompare();
}

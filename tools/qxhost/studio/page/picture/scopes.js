// Scopes, drawn from the counts that the server makes on the device.

import {byId, element, fitCanvas, oncePerDrawing, setText, shortened} from '../base/dom.js';
import {remember, remembered} from '../base/memory.js';
import {shownTab} from '../base/tabs.js';
import {studio} from '../base/studio.js';

// With how many letters of the name are shown where there is little room.
const kinds = [
    ['waveform', 'Waveform', 4],
    ['parade', 'Parade', 6],
    ['vectorscope', 'Vectorscope', 6],
    ['histogram', 'Histogram', 5],
    ['chromaticity', 'Chromaticity', 6]
];
const chosen = new Set(JSON.parse(remembered('scopes') ?? '["waveform","parade","vectorscope","histogram"]'));
const boxes = new Map();
let counts = null; // the newest message
let sent = null;

/** Counts of a message: 16 bits each, little endian, in base64. */
function decodeCounts(text) {
    const bytes = atob(text);
    const counts = new Uint16Array(bytes.length / 2);
    for (let i = 0; i < counts.length; ++i)
        counts[i] = bytes.charCodeAt(2 * i) | (bytes.charCodeAt(2 * i + 1) << 8);
    return counts;
}

// The brightness of a count: by its logarithm, so that single pixels are seen beside thousands.
function brightness(full) {
    const gain = 2 ** Number(byId('scope-gain').value);
    const scale = 255 / Math.log1p(full);
    return Uint8Array.from({length: full + 1}, (_, count) =>
        count === 0 ? 0 : Math.min(255, 40 + scale * Math.log1p(count * gain))
    );
}

// An image of counts, level 0 at the bottom; `colours` says which of red, green and blue each array lights. Each of its rows
// stands for `levels` of theirs, and is as bright as the brightest of these.
function imageOf(arrays, columns, rows, levels = 1) {
    const last = Math.ceil(rows / levels) - 1;
    const image = new ImageData(columns, last + 1);
    let most = 1;
    for (const {values} of arrays) most = values.reduce((a, b) => (a > b ? a : b), most);
    const light = brightness(most);
    for (const {values, colour} of arrays) {
        for (let row = 0; row < rows; ++row) {
            for (let column = 0; column < columns; ++column) {
                const count = values[row * columns + column];
                if (count === 0) continue;
                const bright = light[count];
                const at = 4 * ((last - Math.floor(row / levels)) * columns + column);
                image.data[at] = Math.max(image.data[at], bright * colour[0]);
                image.data[at + 1] = Math.max(image.data[at + 1], bright * colour[1]);
                image.data[at + 2] = Math.max(image.data[at + 2], bright * colour[2]);
                image.data[at + 3] = 255;
            }
        }
    }
    return image;
}

const spare = document.createElement('canvas');

function drawImage(context, image, x, y, width, height) {
    spare.width = image.width;
    spare.height = image.height;
    spare.getContext('2d').putImageData(image, 0, 0);
    context.imageSmoothingEnabled = true;
    context.imageSmoothingQuality = 'high';
    context.drawImage(spare, x, y, width, height);
}

// Draws counts of levels into a place. Levels that share a line of the screen are not averaged: a flat picture has one bright
// level among hundreds of dark ones.
function drawLevels(context, values, colour, {columns, levels}, place) {
    const each = Math.max(1, Math.ceil((2 * levels) / place.height));
    const image = imageOf([{values, colour}], columns, levels, each);
    const height = (place.height * image.height * each) / levels;
    drawImage(context, image, place.x, place.y + place.height - height, place.width, height);
}

// Scopes are dark in both themes, as their traces are light.
const inks = {line: 'rgb(255 255 255 / 16%)', legal: '#d9a441', text: '#b4bac2', target: 'rgb(255 255 255 / 55%)'};
const red = [1, 0.25, 0.25];
const green = [0.25, 1, 0.35];
const blue = [0.35, 0.5, 1];
const white = [0.86, 0.9, 0.88];

function text(context, scale, words, x, y, align = 'left', colour = inks.text) {
    context.font = `${10 * scale}px system-ui, sans-serif`;
    context.textAlign = align;
    context.textBaseline = 'middle';
    context.fillStyle = colour;
    context.fillText(words, x, y);
}

// Lines at round codes, and at the ends of the legal range, across a place.
function levelLines(context, scale, place, levels, bits, legal) {
    const toY = (code) => place.y + place.height * (1 - (code + 0.5) / levels);
    const last = 2 ** bits - 1;
    context.lineWidth = scale;
    const line = (code, colour, dash) => {
        context.strokeStyle = colour;
        context.setLineDash(dash);
        context.beginPath();
        context.moveTo(place.x, Math.round(toY(code)) + 0.5);
        context.lineTo(place.x + place.width, Math.round(toY(code)) + 0.5);
        context.stroke();
        context.setLineDash([]);
    };
    const isMarked = legal && (legal[0] > 0 || legal[1] < last);
    for (const part of [0, 0.25, 0.5, 0.75, 1]) {
        const code = Math.round(last * part);
        line(code, inks.line, []);
        const isNear = isMarked && legal.some((mark) => Math.abs(toY(mark) - toY(code)) < 11 * scale);
        if (!isNear) text(context, scale, String(code), place.x - 4 * scale, toY(code), 'right');
    }
    if (isMarked) {
        for (const code of legal) {
            line(code, inks.legal, [4 * scale, 3 * scale]);
            text(context, scale, String(code), place.x - 4 * scale, toY(code), 'right', inks.legal);
        }
    }
}

const margins = (width, height, scale) => ({
    x: 32 * scale,
    y: 8 * scale,
    width: width - 38 * scale,
    height: height - 16 * scale
});

function drawWaveform({context, width, height, scale}, {bits, waveform, black, white: top}) {
    const place = margins(width, height, scale);
    drawLevels(context, decodeCounts(waveform.luma), white, waveform, place);
    levelLines(context, scale, place, waveform.levels, bits, [black, top]);
}

function drawParade({context, width, height, scale}, {bits, parade}) {
    const place = margins(width, height, scale);
    const part = place.width / 3;
    [
        ['r', red],
        ['g', green],
        ['b', blue]
    ].forEach(([channel, colour], i) => {
        const third = {...place, x: place.x + i * part + scale, width: part - 2 * scale};
        drawLevels(context, decodeCounts(parade[channel]), colour, parade, third);
    });
    levelLines(context, scale, place, parade.levels, bits, null);
}

function drawVectorscope({context, width, height, scale}, {vectorscope}) {
    const side = Math.min(width, height) - 12 * scale;
    const left = (width - side) / 2;
    const top = (height - side) / 2;
    const middle = {x: left + side / 2, y: top + side / 2};
    const image = imageOf(
        [{values: decodeCounts(vectorscope.counts), colour: white}],
        vectorscope.size,
        vectorscope.size
    );
    drawImage(context, image, left, top, side, side);
    const {levels} = vectorscope;
    const toX = (cb) => left + ((cb + 0.5) / levels) * side;
    const toY = (cr) => top + side - ((cr + 0.5) / levels) * side;
    context.lineWidth = scale;
    context.strokeStyle = inks.line;
    context.beginPath();
    context.arc(middle.x, middle.y, (side * 0.5 * 224) / 256, 0, 2 * Math.PI);
    context.moveTo(left, middle.y);
    context.lineTo(left + side, middle.y);
    context.moveTo(middle.x, top);
    context.lineTo(middle.x, top + side);
    context.stroke();
    // The line of skin: 123 degrees from Cb.
    context.strokeStyle = inks.legal;
    context.setLineDash([4 * scale, 3 * scale]);
    context.beginPath();
    context.moveTo(middle.x, middle.y);
    context.lineTo(
        middle.x + Math.cos((123 / 180) * Math.PI) * side * 0.44,
        middle.y - Math.sin((123 / 180) * Math.PI) * side * 0.44
    );
    context.stroke();
    context.setLineDash([]);
    context.strokeStyle = inks.target;
    for (const {name, cb, cr} of vectorscope.targets ?? []) {
        const size = 5 * scale;
        context.strokeRect(toX(cb) - size, toY(cr) - size, 2 * size, 2 * size);
        const away = toX(cb) < middle.x ? -1 : 1;
        text(context, scale, name, toX(cb) + away * 9 * scale, toY(cr), away < 0 ? 'right' : 'left');
    }
}

function drawHistogram({context, width, height, scale}, {bits, histogram, black, white: top}) {
    const place = {x: 8 * scale, y: 8 * scale, width: width - 16 * scale, height: height - 26 * scale};
    const {levels} = histogram;
    const last = 2 ** bits - 1;
    // A single code of a flat picture does not flatten the rest: heights are roots. Nor do the codes at the ends, where
    // all is gathered that is clipped; they may go beyond the top.
    const channels = ['r', 'g', 'b', 'luma'].filter((name) => histogram[name]);
    const ends = new Set([0, last, black, top]);
    const inner = channels.flatMap((name) => histogram[name].filter((_, code) => !ends.has(code)));
    const most = Math.sqrt(inner.reduce((a, b) => Math.max(a, b), 1));
    const gain = 2 ** Number(byId('scope-gain').value);
    const toX = (code) => place.x + ((code + 0.5) / levels) * place.width;
    const colours = {r: '#ff5050', g: '#46d860', b: '#5a8cff', luma: '#dde2e0'};
    context.globalCompositeOperation = 'lighter';
    for (const name of channels) {
        context.beginPath();
        context.moveTo(place.x, place.y + place.height);
        histogram[name].forEach((count, code) => {
            const y = place.y + place.height * (1 - Math.min(1, (gain * Math.sqrt(count)) / most));
            context.lineTo(toX(code), y);
        });
        context.lineTo(place.x + place.width, place.y + place.height);
        if (name === 'luma') {
            context.lineWidth = scale;
            context.strokeStyle = colours.luma;
            context.stroke();
        } else {
            context.globalAlpha = 0.5;
            context.fillStyle = colours[name];
            context.fill();
            context.globalAlpha = 1;
        }
    }
    context.globalCompositeOperation = 'source-over';
    const mark = (code, colour, dash) => {
        context.strokeStyle = colour;
        context.setLineDash(dash);
        context.beginPath();
        context.moveTo(Math.round(toX(code)) + 0.5, place.y);
        context.lineTo(Math.round(toX(code)) + 0.5, place.y + place.height);
        context.stroke();
        context.setLineDash([]);
    };
    context.lineWidth = scale;
    const marks = black > 0 || top < last ? [black, top] : [];
    for (const part of [0, 0.25, 0.5, 0.75, 1]) {
        const code = Math.round(last * part);
        mark(code, inks.line, []);
        if (!marks.some((m) => Math.abs(toX(m) - toX(code)) < 40 * scale))
            text(
                context,
                scale,
                String(code),
                toX(code),
                place.y + place.height + 9 * scale,
                part === 0 ? 'left' : part === 1 ? 'right' : 'center'
            );
    }
    for (const code of marks) {
        mark(code, inks.legal, [4 * scale, 3 * scale]);
        text(context, scale, String(code), toX(code), place.y + place.height + 9 * scale, 'center', inks.legal);
    }
}

function drawChromaticity({context, width, height, scale}, {chromaticity}) {
    const {end} = chromaticity;
    // What is shown: all colours that there are, and a margin.
    const shown = {left: -0.03, bottom: -0.04, width: 0.82, height: 0.92};
    const unit = Math.min((width - 8 * scale) / shown.width, (height - 8 * scale) / shown.height);
    const left = (width - shown.width * unit) / 2;
    const top = (height - shown.height * unit) / 2;
    const toX = (x) => left + (x - shown.left) * unit;
    const toY = (y) => top + (shown.height - (y - shown.bottom)) * unit;
    const image = imageOf(
        [{values: decodeCounts(chromaticity.counts), colour: white}],
        chromaticity.size,
        chromaticity.size
    );
    context.lineWidth = scale;
    context.strokeStyle = inks.line;
    for (let i = 0; i <= 8; ++i) {
        context.beginPath();
        context.moveTo(toX(i / 10), toY(0));
        context.lineTo(toX(i / 10), toY(0.85));
        context.moveTo(toX(0), toY(i / 10));
        context.lineTo(toX(0.78), toY(i / 10));
        context.stroke();
    }
    text(context, scale, 'x', toX(0.77), toY(-0.022), 'center');
    text(context, scale, 'y', toX(-0.018), toY(0.84), 'center');
    context.globalCompositeOperation = 'lighter';
    drawImage(context, image, toX(0), toY(end), end * unit, end * unit);
    context.globalCompositeOperation = 'source-over';
    const outline = (points, colour) => {
        context.strokeStyle = colour;
        context.beginPath();
        points.forEach(([x, y], i) => (i ? context.lineTo(toX(x), toY(y)) : context.moveTo(toX(x), toY(y))));
        context.closePath();
        context.stroke();
    };
    if (chromaticity.locus?.length) outline(chromaticity.locus, inks.target);
    if (chromaticity.gamut?.length) outline(chromaticity.gamut, inks.legal);
}

const drawers = {
    waveform: drawWaveform,
    parade: drawParade,
    vectorscope: drawVectorscope,
    histogram: drawHistogram,
    chromaticity: drawChromaticity
};

const draw = oncePerDrawing(() => {
    // Where they are scrolled, which is at phone width, the keyboard must get there.
    const place = byId('scopes');
    place.tabIndex = place.scrollHeight > place.clientHeight ? 0 : -1;
    for (const [kind, {canvas}] of boxes) {
        if (!canvas.clientWidth) continue;
        const place = fitCanvas(canvas);
        place.context.clearRect(0, 0, place.width, place.height);
        if (counts?.[kind]) drawers[kind](place, counts);
    }
    if (counts) {
        const from = counts.own ? "the clip's own codes" : 'computed from RGB';
        const isCut = counts.own && (counts.parade || counts.histogram);
        setText(byId('scope-note'), `${counts.bits} bits, frame ${counts.frame}, ${from}`);
        byId('scope-note').title = [
            counts.own ? "Luma and chroma are the clip's own codes" : 'Luma and chroma are computed from red, green and blue',
            ...(isCut ? [`red, green and blue are cut off at 0 and ${2 ** counts.bits - 1}`] : []),
            ...(studio.state?.clip.range === 'video' ? ['dashed lines mark the ends of the video range'] : [])
        ].join('; ');
        byId('scopes').dataset.frame = counts.frame;
    }
});

// Scopes cost work on the device: only those that are seen are asked for.
function ask() {
    if (!studio.connection.isOpen) return;
    const wanted = {
        kinds:
            shownTab() === 'scopes' && document.visibilityState === 'visible'
                ? kinds.map(([kind]) => kind).filter((kind) => chosen.has(kind))
                : [],
        // Those of 10 bits are four times as large.
        of: byId('scope-of').value,
        rate: studio.state?.clip.bits > 8 ? 5 : 12
    };
    const asked = JSON.stringify(wanted);
    if (sent === asked) return;
    sent = asked;
    studio.tell('scopes', wanted);
}

function fill() {
    const place = byId('scopes');
    for (const [kind, name] of kinds) {
        const box = boxes.get(kind);
        if (chosen.has(kind) && !box) {
            const canvas = element('canvas', {role: 'img', 'aria-label': name});
            const root = element('figure', {class: `scope ${kind}`}, canvas, element('figcaption', {text: name}));
            boxes.set(kind, {canvas, root});
        } else if (!chosen.has(kind) && box) {
            box.root.remove();
            boxes.delete(kind);
        }
    }
    place.replaceChildren(...kinds.filter(([kind]) => boxes.has(kind)).map(([kind]) => boxes.get(kind).root));
    draw();
}

export function startScopes() {
    for (const [kind, name, length] of kinds) {
        const input = element('input', {
            type: 'checkbox',
            value: kind,
            onchange: () => {
                if (input.checked) chosen.add(kind);
                else chosen.delete(kind);
                remember('scopes', JSON.stringify([...chosen]));
                fill();
                ask();
            }
        });
        input.checked = chosen.has(kind);
        byId('scope-kinds').append(element('label', {title: name}, input, element('span', {}, ...shortened(name, length))));
    }
    byId('scope-of').addEventListener('change', ask);
    byId('scope-gain').addEventListener('input', draw);
    byId('scope-gain').addEventListener('dblclick', ({target}) => {
        target.value = 0;
        draw();
    });
    new ResizeObserver(draw).observe(byId('scopes'));
    studio.on('open', () => {
        sent = null;
        ask();
    });
    studio.on('session', () => {
        sent = null;
        counts = null;
        ask();
    });
    studio.on('tab', () => {
        ask();
        draw();
    });
    document.addEventListener('visibilitychange', ask);
    studio.on('scopes', (message) => {
        counts = message;
        studio.scopes = message;
        draw();
    });
    fill();
}

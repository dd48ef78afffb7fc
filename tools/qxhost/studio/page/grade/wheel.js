// Colour wheels: a disc whose point is a place on a vectorscope of BT.709, across Cb, up Cr, and a level.

import {clamp, element, fitCanvas, followPointer, themeColour} from '../base/dom.js';

const kr = 0.2126;
const kb = 0.0722;
const kg = 1 - kr - kb;
// The rim of the wheel is half of the largest chroma there is.
const blueAtRim = 0.5 - 0.5 * kb;
const redAtRim = 0.5 - 0.5 * kr;

// What a point adds to red, green and blue: chroma without luma.
function pushOf([x, y]) {
    const blue = x * blueAtRim;
    const red = y * redAtRim;
    return [red, -(kr * red + kb * blue) / kg, blue];
}

const lumaOf = (colour) => kr * colour[0] + kg * colour[1] + kb * colour[2];

// The point of three colours that differ from their neutral values by `push`.
function pointOf(push) {
    const luma = lumaOf(push);
    return [(push[2] - luma) / blueAtRim, (push[0] - luma) / redAtRim];
}

/** How a wheel's parameters and its point say the same; `role` lift adds to its neutral value, the others multiply. */
export function wheelMapping(parameters, role) {
    const colours = parameters.length >= 3 ? parameters.slice(0, 3) : null;
    const single = colours ? null : parameters[0];
    if (single && single.size === 2)
        return {point: (values) => values[single.name], values: (point) => ({[single.name]: point})};
    const names = colours?.map(({name}) => name);
    const read = (values) => (colours ? names.map((name) => values[name][0]) : values[single.name].slice(0, 3));
    const neutral = colours ? colours.map((parameter) => parameter.default[0]) : single.default.slice(0, 3);
    const isFactor = role !== 'lift' && neutral.every((value) => value !== 0);
    const pushFrom = (values) =>
        read(values).map((value, i) => (isFactor ? value / neutral[i] - 1 : value - neutral[i]));
    return {
        point: (values) => pointOf(pushFrom(values)),
        values: (point, old) => {
            const luma = lumaOf(pushFrom(old));
            const limits = colours ?? [single, single, single];
            const made = pushOf(point).map((push, i) => {
                const value = isFactor ? neutral[i] * (1 + push + luma) : neutral[i] + push + luma;
                const limit = (which) => (Array.isArray(which) ? which[colours ? 0 : i] : which);
                return Number(clamp(value, limit(limits[i].minimum), limit(limits[i].maximum)).toFixed(5));
            });
            return colours
                ? Object.fromEntries(names.map((name, i) => [name, [made[i]]]))
                : {[single.name]: [...made, ...old[single.name].slice(3)]};
        }
    };
}

function paint(canvas, point) {
    if (!canvas.clientWidth) return;
    const {context, width, scale} = fitCanvas(canvas);
    const radius = width / 2 - 2 * scale;
    const middle = width / 2;
    context.clearRect(0, 0, width, width);
    const ring = context.createConicGradient(0, middle, middle);
    for (let i = 0; i <= 12; ++i) {
        // Angles of the gradient run clockwise, those of the vectorscope against it.
        const angle = (-i / 12) * 2 * Math.PI;
        const [red, green, blue] = pushOf([Math.cos(angle), Math.sin(angle)]).map((v) =>
            Math.round((0.5 + v) * 255)
        );
        ring.addColorStop(i / 12, `rgb(${red} ${green} ${blue})`);
    }
    context.lineWidth = 5 * scale;
    context.strokeStyle = ring;
    context.beginPath();
    context.arc(middle, middle, radius - 2 * scale, 0, 2 * Math.PI);
    context.stroke();
    context.lineWidth = scale;
    context.strokeStyle = themeColour('--line');
    context.beginPath();
    context.moveTo(middle - radius * 0.85, middle);
    context.lineTo(middle + radius * 0.85, middle);
    context.moveTo(middle, middle - radius * 0.85);
    context.lineTo(middle, middle + radius * 0.85);
    context.stroke();
    const x = middle + clamp(point[0], -1, 1) * radius * 0.88;
    const y = middle - clamp(point[1], -1, 1) * radius * 0.88;
    context.strokeStyle = themeColour('--text');
    context.beginPath();
    context.moveTo(middle, middle);
    context.lineTo(x, y);
    context.stroke();
    context.fillStyle = themeColour('--panel');
    context.lineWidth = 1.5 * scale;
    context.beginPath();
    context.arc(x, y, 4.5 * scale, 0, 2 * Math.PI);
    context.fill();
    context.stroke();
}

/** The disc. `drag(point)` and `commit(point)` get its point; Shift makes the pointer finer. */
export function disc({label, step, drag, commit, reset}) {
    let point = [0, 0];
    let isHeld = false;
    const canvas = element('canvas', {'aria-hidden': 'true'});
    const root = element(
        'div',
        {
            class: 'disc',
            role: 'slider',
            tabindex: '0',
            'aria-label': label,
            'aria-valuemin': '0',
            'aria-valuemax': '100',
            'aria-roledescription': 'colour wheel',
            title:
                'Arrow keys move the point; Shift is finer with the pointer, coarser with keys;' +
                ' a double click resets'
        },
        canvas
    );
    const show = () => {
        paint(canvas, point);
        root.setAttribute('aria-valuenow', Math.round(Math.min(1, Math.hypot(...point)) * 100));
        root.setAttribute('aria-valuetext', `Cb ${point[0].toFixed(3)}, Cr ${point[1].toFixed(3)}`);
    };
    const inside = ([x, y]) => {
        const length = Math.max(1, Math.hypot(x, y));
        return [x / length, y / length].map((value) => Number(value.toFixed(5)));
    };
    let from = null;
    followPointer(root, {
        start: (event) => {
            from = {x: event.clientX, y: event.clientY};
        },
        move: (event) => {
            const scale = ((event.shiftKey ? 0.2 : 1) * 2) / root.clientWidth;
            const moved = [(event.clientX - from.x) * scale, -(event.clientY - from.y) * scale];
            from = {x: event.clientX, y: event.clientY};
            if (!moved[0] && !moved[1]) return;
            isHeld = true;
            point = inside([point[0] + moved[0], point[1] + moved[1]]);
            show();
            drag(point);
        },
        end: () => {
            if (isHeld) commit(point);
            isHeld = false;
        }
    });
    root.addEventListener('dblclick', reset);
    root.addEventListener('keydown', (event) => {
        const ways = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1]};
        const way = ways[event.key];
        if (!way || event.ctrlKey || event.altKey || event.metaKey) return;
        event.preventDefault();
        event.stopPropagation();
        const by = (event.shiftKey ? 10 : 1) * step;
        isHeld = true;
        point = inside([point[0] + way[0] * by, point[1] + way[1] * by]);
        show();
        drag(point);
    });
    const release = () => {
        if (isHeld) commit(point);
        isHeld = false;
    };
    root.addEventListener('keyup', release);
    root.addEventListener('blur', release);
    new ResizeObserver(show).observe(root);
    return {
        root,
        update: (newPoint) => {
            point = newPoint;
            show();
        }
    };
}

// Elements of the page, made in one expression.

/** The element of an identifier in index.html. */
export const byId = (id) => document.getElementById(id);

/** An element with attributes (`class`, `aria-label`, ...), listeners (`onclick`), `text`, and children. */
export function element(tag, attributes = {}, ...children) {
    const made = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (value === null || value === undefined || value === false) continue;
        if (name === 'text') made.textContent = value;
        else if (name.startsWith('on')) made.addEventListener(name.slice(2), value);
        else made.setAttribute(name, value === true ? '' : value);
    }
    made.append(...children.filter((child) => child !== null && child !== undefined));
    return made;
}

/** A text of which, where there is little room, only so many letters are shown. */
export const shortened = (text, length) => [
    text.slice(0, length),
    ...(length < text.length ? [element('span', {class: 'only-wide', text: text.slice(length)})] : [])
];

/** A drawing of one path in a square of 16 units. */
export function icon(path) {
    const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
    svg.setAttribute('viewBox', '0 0 16 16');
    svg.setAttribute('aria-hidden', 'true');
    const drawn = document.createElementNS('http://www.w3.org/2000/svg', 'path');
    drawn.setAttribute('d', path);
    svg.append(drawn);
    return svg;
}

/** Sets text only where it differs, so that a screen reader and a selection are left alone. */
export function setText(target, text) {
    if (target.textContent !== text) target.textContent = text;
}

/** Tells a screen reader what else only the eye would see. */
export function announce(text) {
    byId('announce').textContent = text;
}

/** A number between two others, each of which may be null. */
export function clamp(value, low, high) {
    return Math.min(high ?? Infinity, Math.max(low ?? -Infinity, value));
}

/** Calls `work` once at the next drawing of the page, however often it is asked for. */
export function oncePerDrawing(work) {
    let asked = false;
    return () => {
        if (asked) return;
        asked = true;
        requestAnimationFrame(() => {
            asked = false;
            work();
        });
    };
}

/** Follows a pointer from its press on `target` until it is let go: `start(event)` may return false to leave it. */
export function followPointer(target, {start, move, end}) {
    target.addEventListener('pointerdown', (event) => {
        if (event.button !== 0 || start(event) === false) return;
        target.setPointerCapture(event.pointerId);
        const moved = (e) => e.pointerId === event.pointerId && move(e);
        const ended = (e) => {
            if (e.pointerId !== event.pointerId) return;
            target.removeEventListener('pointermove', moved);
            target.removeEventListener('pointerup', ended);
            target.removeEventListener('pointercancel', ended);
            end?.(e);
        };
        target.addEventListener('pointermove', moved);
        target.addEventListener('pointerup', ended);
        target.addEventListener('pointercancel', ended);
    });
}

/** A canvas in device pixels: its context, and its size in them, after fitting it to its place on the page. */
export function fitCanvas(canvas) {
    const scale = window.devicePixelRatio || 1;
    const width = Math.max(1, Math.round(canvas.clientWidth * scale));
    const height = Math.max(1, Math.round(canvas.clientHeight * scale));
    if (canvas.width !== width || canvas.height !== height) {
        canvas.width = width;
        canvas.height = height;
    }
    return {context: canvas.getContext('2d'), width, height, scale};
}

/** Calls a function whenever the theme changes from dark to light or back. */
export function onTheme(changed) {
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', changed);
}

/** A colour of the theme. */
export const themeColour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

// Typed numbers and sliders.

import {clamp, element} from '../base/dom.js';

/** How a number is written: as many places as its step has, more if the value has them, at most `most`. */
export function written(value, step, most = 6) {
    if (value === undefined || value === null || !Number.isFinite(value)) return '–';
    const rounded = Number(value.toPrecision(7));
    const places = step ? Math.min(6, Math.max(0, -Math.floor(Math.log10(step) + 1e-9))) : 0;
    const shortest = String(rounded);
    const has = shortest.includes('e') ? 0 : (shortest.split('.')[1] ?? '').length;
    return has > places && has <= most ? shortest : rounded.toFixed(Math.max(places, Math.min(has, most)));
}

/** The step of a parameter: its own, 1 of whole numbers, a hundredth of the range or of 1. */
export function stepOf(parameter) {
    if (parameter.step) return Array.isArray(parameter.step) ? parameter.step[0] : parameter.step;
    if (parameter.type === 'int') return 1;
    const [low, high] = rangeOf(parameter, 0);
    return low !== null && high !== null ? 10 ** Math.floor(Math.log10((high - low) / 100)) : 0.01;
}

/** The least and the largest value of a component, each null if there is none. */
export function rangeOf(parameter, index) {
    const of = (limit) => {
        if (limit === null || limit === undefined) return null;
        return Array.isArray(limit) ? (limit[Math.min(index, limit.length - 1)] ?? null) : limit;
    };
    return [of(parameter.minimum), of(parameter.maximum)];
}

// A value on the steps that start at the least value.
function onStep(value, low, step) {
    const from = low ?? 0;
    return Number((from + Math.round((value - from) / step) * step).toPrecision(12));
}

// The value that a key asks for; null if it is another key's business.
function valueOfKey(event, value, [low, high], step) {
    const by = event.shiftKey ? 10 * step : step;
    switch (event.key) {
        case 'ArrowUp':
        case 'ArrowRight':
            return clamp(onStep(value + by, low, step), low, high);
        case 'ArrowDown':
        case 'ArrowLeft':
            return clamp(onStep(value - by, low, step), low, high);
        case 'PageUp':
            return clamp(onStep(value + 10 * step, low, step), low, high);
        case 'PageDown':
            return clamp(onStep(value - 10 * step, low, step), low, high);
        case 'Home':
            return low;
        case 'End':
            return high;
        default:
            return null;
    }
}

// Keys that a control changes its value with. While one is held the changes are one step of undo.
function watchKeys(target, {value, range, step, drag, commit, only}) {
    let isHeld = false;
    target.addEventListener('keydown', (event) => {
        if (event.ctrlKey || event.altKey || event.metaKey || (only && !only.includes(event.key))) return;
        const wanted = valueOfKey(event, value(), range, step);
        if (wanted === null) return;
        event.preventDefault();
        event.stopPropagation();
        isHeld = true;
        drag(wanted);
    });
    const release = () => {
        if (isHeld) commit(value());
        isHeld = false;
    };
    target.addEventListener('keyup', release);
    target.addEventListener('blur', release);
}

/**
 * A field for one number. `drag(value)` is called for each change while a key is held, `commit(value)` at the end. What is
 * no number is marked and not taken; Escape brings the old value back.
 */
export function numberField({label, range, step, isWhole, places, drag, commit}) {
    const [low, high] = range;
    let value = 0;
    const field = element('input', {
        type: 'text',
        inputmode: 'decimal',
        class: 'number',
        'aria-label': label,
        autocomplete: 'off',
        spellcheck: 'false'
    });
    const show = () => {
        field.value = written(value, step, places);
        field.removeAttribute('aria-invalid');
        field.title = '';
    };
    const take = () => {
        if (field.value === written(value, step, places)) return true;
        const typed = Number(field.value.trim().replace(',', '.'));
        const isGood =
            field.value.trim() !== '' &&
            Number.isFinite(typed) &&
            (!isWhole || Number.isInteger(typed)) &&
            (low === null || typed >= low) &&
            (high === null || typed <= high);
        if (!isGood) {
            field.setAttribute('aria-invalid', 'true');
            field.title =
                `Expected a ${isWhole ? 'whole ' : ''}number` +
                (low !== null ? ` from ${low}` : '') +
                (high !== null ? ` to ${high}` : '');
            return false;
        }
        value = typed;
        show();
        commit(value);
        return true;
    };
    field.addEventListener('focus', () => field.select());
    field.addEventListener('keydown', (event) => {
        if (event.key === 'Enter' && take()) field.select();
        if (event.key === 'Escape') show();
    });
    watchKeys(field, {
        value: () => value,
        range,
        step,
        commit,
        only: ['ArrowUp', 'ArrowDown', 'PageUp', 'PageDown'],
        drag: (wanted) => {
            value = wanted;
            show();
            drag(value);
        }
    });
    field.addEventListener('blur', () => {
        if (!take()) show();
    });
    const update = (newValue) => {
        const isTyping = document.activeElement === field && field.value !== written(value, step, places);
        value = newValue;
        if (!isTyping) show();
    };
    return {root: field, update};
}

/** A slider. A double click calls `reset`. */
export function slider({label, range, step, drag, commit, reset}) {
    const [low, high] = range;
    let value = low;
    const input = element('input', {type: 'range', min: low, max: high, step: 'any', 'aria-label': label});
    const show = () => {
        input.value = value;
        input.style.setProperty('--part', `${clamp((value - low) / (high - low), 0, 1) * 100}%`);
        input.setAttribute('aria-valuetext', written(value, step));
    };
    const take = () => clamp(onStep(Number(input.value), low, step), low, high);
    input.addEventListener('input', () => {
        value = take();
        show();
        drag(value);
    });
    input.addEventListener('change', () => {
        value = take();
        show();
        commit(value);
    });
    watchKeys(input, {
        value: () => value,
        range,
        step,
        commit,
        drag: (wanted) => {
            value = wanted;
            show();
            drag(value);
        }
    });
    input.addEventListener('dblclick', reset);
    const update = (newValue) => {
        value = newValue;
        show();
    };
    return {root: input, update};
}

// Curves: a parameter of several values, which are the heights of points at even distances.

import {clamp, element, followPointer} from '../base/dom.js';
import {numberField, rangeOf, stepOf, written} from './numbers.js';

const width = 240;
const height = 120;

function svg(tag, attributes = {}) {
    const made = document.createElementNS('http://www.w3.org/2000/svg', tag);
    for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
    return made;
}

// The tangent between two slopes that never overshoots: their harmonic mean; 0 at a peak.
const tangent = (before, after) => (before * after > 0 ? (2 * before * after) / (before + after) : 0);

// A smooth line through the points, drawn to show their course.
function pathOf(values, toX, toY) {
    const slopes = values.slice(1).map((value, i) => value - values[i]);
    const tangents = values.map((_, i) => {
        if (i === 0 || i === slopes.length) return slopes[Math.min(i, slopes.length - 1)];
        return tangent(slopes[i - 1], slopes[i]);
    });
    let path = `M${toX(0)} ${toY(values[0])}`;
    for (let i = 0; i < slopes.length; ++i) {
        path +=
            `C${toX(i + 1 / 3)} ${toY(values[i] + tangents[i] / 3)} ${toX(i + 2 / 3)}` +
            ` ${toY(values[i + 1] - tangents[i + 1] / 3)} ${toX(i + 1)} ${toY(values[i + 1])}`;
    }
    return path;
}

/** The curve of a parameter. `drag(values)` and `commit(values)` get all its values. */
export function curve({parameter, drag, commit, reset}) {
    const [low, high] = rangeOf(parameter, 0).map((limit, i) => limit ?? i);
    const step = stepOf(parameter);
    let values = parameter.values.slice();
    let chosen = 0;
    const count = values.length;
    const toX = (i) => 8 + (i / (count - 1)) * (width - 16);
    const toY = (value) => height - 8 - ((value - low) / (high - low)) * (height - 16);
    const line = svg('path', {class: 'curve-line'});
    const colour = /red/i.test(parameter.name)
        ? 'r'
        : /green/i.test(parameter.name)
          ? 'g'
          : /blue/i.test(parameter.name)
            ? 'b'
            : '';
    const picture = svg('svg', {
        viewBox: `0 0 ${width} ${height}`,
        class: `curve ${colour}`,
        'aria-hidden': 'true'
    });
    for (let i = 0; i < count; ++i)
        picture.append(svg('line', {class: 'curve-grid', x1: toX(i), x2: toX(i), y1: 8, y2: height - 8}));
    picture.append(
        svg('line', {class: 'curve-grid', x1: toX(0), y1: toY(low), x2: toX(count - 1), y2: toY(high)}),
        line
    );
    const points = values.map((_, i) =>
        element('div', {
            class: 'curve-point',
            role: 'slider',
            tabindex: '0',
            'aria-valuemin': low,
            'aria-valuemax': high,
            'aria-orientation': 'vertical',
            'aria-label': `${parameter.label}, point ${i + 1} of ${count}`
        })
    );
    const field = numberField({
        label: `${parameter.label}, value of the point`,
        range: [low, high],
        step,
        drag: (value) => {
            setValue(value);
            drag(values);
        },
        commit: (value) => {
            setValue(value);
            commit(values);
        }
    });
    const note = element('span', {class: 'quiet'});
    const root = element(
        'div',
        {class: 'curve-box'},
        element('div', {class: 'curve-place'}, picture, ...points),
        element('div', {class: 'curve-value'}, note, field.root)
    );

    const show = () => {
        line.setAttribute('d', pathOf(values, toX, toY));
        points.forEach((point, i) => {
            point.style.left = `${(toX(i) / width) * 100}%`;
            point.style.top = `${(toY(clamp(values[i], low, high)) / height) * 100}%`;
            point.setAttribute('aria-valuenow', values[i]);
            point.setAttribute('aria-valuetext', written(values[i], step));
            point.classList.toggle('chosen', i === chosen);
        });
        note.textContent = `point ${chosen + 1} of ${count}`;
        field.update(values[chosen]);
    };
    const setValue = (value) => {
        values = values.slice();
        values[chosen] = Number(clamp(value, low, high).toPrecision(7));
        show();
    };
    points.forEach((point, i) => {
        let isHeld = false;
        const release = () => {
            if (isHeld) commit(values);
            isHeld = false;
        };
        const change = (value) => {
            isHeld = true;
            setValue(value);
            drag(values);
        };
        point.addEventListener('focus', () => {
            chosen = i;
            show();
        });
        followPointer(point, {
            start: () => point.focus(),
            move: (event) => {
                const box = picture.getBoundingClientRect();
                const y = ((event.clientY - box.top) / box.height) * height;
                change(low + Math.round((((height - 8 - y) / (height - 16)) * (high - low)) / step) * step);
            },
            end: release
        });
        point.addEventListener('keydown', (event) => {
            const by = {ArrowUp: 1, ArrowRight: 1, ArrowDown: -1, ArrowLeft: -1, PageUp: 10, PageDown: -10}[
                event.key
            ];
            if (!by || event.ctrlKey || event.altKey || event.metaKey) return;
            event.preventDefault();
            event.stopPropagation();
            change(values[i] + by * (event.shiftKey ? 10 : 1) * step);
        });
        point.addEventListener('keyup', release);
        point.addEventListener('blur', release);
        point.addEventListener('dblclick', (event) => {
            event.stopPropagation();
            setValue(parameter.default[i]);
            commit(values);
        });
    });
    root.addEventListener('dblclick', (event) => {
        if (event.target !== field.root) reset();
    });
    return {
        root,
        update: (newValues) => {
            values = newValues.slice();
            show();
        }
    };
}

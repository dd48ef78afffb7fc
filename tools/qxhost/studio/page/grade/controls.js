// The controls of one link, made from its parameters.

import {Binding} from './binding.js';
import {curve} from './curve.js';
import {clamp, element, followPointer} from '../base/dom.js';
import {keyFrames} from './keys.js';
import {numberField, rangeOf, slider, stepOf} from './numbers.js';
import {studio} from '../base/studio.js';
import {disc, wheelMapping} from './wheel.js';

const componentNames = {colour: ['R', 'G', 'B', 'A'], other: ['X', 'Y', 'Z', 'W']};

/** A label, and a place for what belongs to it; a double click on the label resets. */
function row(parameter, className, reset, ...children) {
    const name = element('span', {
        class: 'label',
        text: parameter.label || parameter.name,
        ondblclick: reset,
        title: `${parameter.label || parameter.name} (${parameter.name})\nA double click resets`
    });
    const unit = parameter.unit ? element('span', {class: 'unit quiet', text: parameter.unit}) : null;
    return element(
        'div',
        {class: `control ${className}`, role: 'group', 'aria-label': parameter.label || parameter.name},
        element('div', {class: 'control-head'}, name, unit),
        ...children
    );
}

// Sliders and numbers of all components.
function numbers({parameter, values, drag, commit, reset, isColour = false}) {
    const step = stepOf(parameter);
    const isWhole = parameter.type === 'int';
    const names = parameter.size > 1 ? componentNames[isColour ? 'colour' : 'other'] : [''];
    const parts = parameter.values.map((_, i) => {
        const range = rangeOf(parameter, i);
        const label = `${parameter.label || parameter.name} ${names[i] ?? i + 1}`.trim();
        const replaced = (value) => values().map((old, k) => (k === i ? value : old));
        const shared = {
            label,
            range,
            step,
            isWhole,
            drag: (value) => drag(replaced(value)),
            commit: (value) => commit(replaced(value))
        };
        const hasSlider = range[0] !== null && range[1] !== null && range[1] > range[0];
        return {
            name:
                parameter.size > 1
                    ? element('span', {class: 'component quiet', 'aria-hidden': 'true', text: names[i] ?? i + 1})
                    : null,
            slider: hasSlider ? slider({...shared, reset}) : null,
            field: numberField(shared)
        };
    });
    const root = element(
        'div',
        {class: 'numbers'},
        ...parts.map((part) =>
            element('div', {class: 'number-row'}, part.name, part.slider?.root, part.field.root)
        )
    );
    const update = (newValues) =>
        parts.forEach((part, i) => {
            part.slider?.update(newValues[i]);
            part.field.update(newValues[i]);
        });
    return {root, update};
}

const toHex = (value) =>
    Math.round(clamp(value, 0, 1) * 255)
        .toString(16)
        .padStart(2, '0');

function colour(options) {
    const {parameter, values, drag, commit} = options;
    const fields = numbers({...options, isColour: true});
    const picker = element('input', {type: 'color', 'aria-label': `${parameter.label}, choose a colour`});
    const taken = () => {
        const colours = [1, 3, 5].map((i) =>
            Number((parseInt(picker.value.slice(i, i + 2), 16) / 255).toFixed(5))
        );
        return [...colours, ...values().slice(3)];
    };
    picker.addEventListener('input', () => drag(taken()));
    picker.addEventListener('change', () => commit(taken()));
    return {
        root: element('div', {class: 'colour'}, picker, fields.root),
        update: (newValues) => {
            fields.update(newValues);
            picker.value = `#${newValues.slice(0, 3).map(toHex).join('')}`;
        }
    };
}

// A dial beside the number: it turns clockwise, as far as the pointer goes round.
function angle(options) {
    const {parameter, values, drag, commit, reset} = options;
    const fields = numbers(options);
    const step = stepOf(parameter);
    const [low, high] = rangeOf(parameter, 0);
    const hand = element('span', {class: 'dial-hand'});
    const dial = element(
        'div',
        {class: 'dial', 'aria-hidden': 'true', title: 'A double click resets', ondblclick: reset},
        hand
    );
    let last = 0;
    let turned = 0;
    const place = (event) => {
        const box = dial.getBoundingClientRect();
        return (
            (Math.atan2(event.clientY - box.top - box.height / 2, event.clientX - box.left - box.width / 2) *
                180) /
            Math.PI
        );
    };
    const wanted = () => [Number(clamp(Math.round(turned / step) * step, low, high).toPrecision(7))];
    let isHeld = false;
    followPointer(dial, {
        start: (event) => {
            last = place(event);
            turned = values()[0];
        },
        move: (event) => {
            const now = place(event);
            turned += ((now - last + 540) % 360) - 180;
            last = now;
            isHeld = true;
            drag(wanted());
        },
        end: () => {
            if (isHeld) commit(wanted());
            isHeld = false;
        }
    });
    return {
        root: element('div', {class: 'angle'}, dial, fields.root),
        update: (newValues) => {
            fields.update(newValues);
            hand.style.transform = `rotate(${newValues[0]}deg)`;
        }
    };
}

function choice({parameter, commit, reset}) {
    const list = element(
        'select',
        {
            'aria-label': parameter.label || parameter.name,
            onchange: ({target}) => commit([Number(target.value)])
        },
        ...parameter.choices.map(({text, value}) => element('option', {value, text}))
    );
    list.addEventListener('keydown', (event) => event.key === 'Delete' && reset());
    return {
        root: list,
        update: ([value]) => {
            if (![...list.options].some((option) => Number(option.value) === value))
                list.append(element('option', {value, text: String(value)}));
            list.value = value;
        }
    };
}

function check({parameter, commit}) {
    const boxes = parameter.values.map(() =>
        element('input', {
            type: 'checkbox',
            'aria-label': parameter.label || parameter.name,
            onchange: () => commit(boxes.map((box) => (box.checked ? 1 : 0)))
        })
    );
    return {
        root: element('div', {class: 'checks'}, ...boxes),
        update: (values) =>
            boxes.forEach((box, i) => {
                box.checked = Boolean(values[i]);
            })
    };
}

const widgets = {slider: numbers, text: numbers, colour, angle, choice, check, curve};

// One parameter, or several that belong to one wheel: what it shows comes from `update(parameters by name)`.
class Control {
    constructor(link, names) {
        this.link = link;
        this.names = names;
        this.binding = new Binding(link.id, () => this.refresh());
        this.local = {};
    }

    values(name) {
        return this.local[name];
    }

    drag(changes) {
        Object.assign(this.local, changes);
        this.show();
        this.binding.drag(changes);
    }

    commit(changes) {
        Object.assign(this.local, changes);
        this.show();
        this.binding.commit(changes);
    }

    reset() {
        const parameters = this.parameters();
        this.commit(
            Object.fromEntries(parameters.map((parameter) => [parameter.name, parameter.default.map(Number)]))
        );
    }

    parameters() {
        const link = studio.link(this.link.id);
        return this.names
            .map((name) => link?.parameters.find((parameter) => parameter.name === name))
            .filter(Boolean);
    }

    refresh() {
        const parameters = this.parameters();
        if (parameters.length !== this.names.length) return;
        if (!this.binding.isHeld) {
            for (const parameter of parameters) this.local[parameter.name] = parameter.values.map(Number);
            this.show();
        }
        for (const keys of this.keys) keys.update();
        const isDefault = parameters.every((parameter) =>
            parameter.default.every((value, i) => Math.abs(Number(value) - Number(parameter.values[i])) < 1e-9)
        );
        this.root.classList.toggle('changed', !isDefault);
    }
}

class PlainControl extends Control {
    constructor(link, parameter) {
        super(link, [parameter.name]);
        const widget =
            widgets[parameter.widget] && !(parameter.widget === 'choice' && !parameter.choices?.length)
                ? parameter.widget
                : 'slider';
        const reset = () => this.reset();
        this.widget = widgets[widget]({
            parameter,
            reset,
            values: () => this.values(parameter.name),
            drag: (values) => this.drag({[parameter.name]: values}),
            commit: (values) => this.commit({[parameter.name]: values})
        });
        this.keys = [keyFrames(link.id, parameter.name)];
        const isShort =
            ['slider', 'text'].includes(widget) &&
            parameter.size === 1 &&
            `${parameter.label || parameter.name} ${parameter.unit ?? ''}`.length < 18;
        this.root = row(
            parameter,
            `is-${widget}${isShort ? ' short' : ''}`,
            reset,
            this.keys[0].mark,
            this.widget.root,
            this.keys[0].list
        );
        this.root.dataset.parameter = parameter.name;
    }

    show() {
        this.widget.update(this.values(this.names[0]));
    }
}

// What of a wheel's parameters its point moves, and its level: one with several components or three named after the
// colours; the level is what remains.
function wheelParts(members) {
    const single = members.find(({size}) => size > 1);
    const byColour = ['red', 'green', 'blue'].map((colour) =>
        members.find(({name}) => name.toLowerCase().endsWith(colour))
    );
    const colours = single ? [single] : byColour.every(Boolean) ? byColour : members.slice(0, 3);
    return {colours, level: members.find((member) => !colours.includes(member)) ?? null};
}

class WheelControl extends Control {
    constructor(link, first, members) {
        super(
            link,
            members.map(({name}) => name)
        );
        const {role} = first.wheel;
        const {colours, level} = wheelParts(members);
        const title = role ? role[0].toUpperCase() + role.slice(1) : first.label;
        const reset = () => this.reset();
        this.mapping = wheelMapping(colours, role);
        this.disc = disc({
            label: `${title}, colour wheel`,
            step: Math.max(stepOf(first), 0.005),
            reset,
            drag: (point) => this.drag(this.mapping.values(point, this.local)),
            commit: (point) => this.commit(this.mapping.values(point, this.local))
        });
        this.fields = colours.flatMap((parameter) =>
            parameter.values.map((_, i) => {
                const set = (value) => ({
                    [parameter.name]: this.values(parameter.name).map((old, k) => (k === i ? value : old))
                });
                const range = rangeOf(parameter, i);
                const label = parameter.size > 1 ? `${parameter.label}, ${i + 1}` : parameter.label;
                const field = numberField({
                    label,
                    range,
                    step: stepOf(parameter),
                    places: 3,
                    drag: (value) => this.drag(set(value)),
                    commit: (value) => this.commit(set(value))
                });
                return {parameter, i, field};
            })
        );
        const part = level && {
            label: level.label,
            range: rangeOf(level, 0),
            step: stepOf(level),
            drag: (value) => this.drag({[level.name]: [value]}),
            commit: (value) => this.commit({[level.name]: [value]}),
            reset: () => this.commit({[level.name]: level.default.map(Number)})
        };
        this.level = level && {name: level.name, slider: slider(part), field: numberField(part)};
        // Keys are set for all parameters of the wheel at once.
        const keys = keyFrames(link.id, ...this.names);
        this.keys = [keys];
        this.root = element(
            'div',
            {class: 'control wheel', role: 'group', 'aria-label': title},
            element(
                'div',
                {class: 'control-head'},
                element('span', {
                    class: 'label',
                    text: title,
                    ondblclick: reset,
                    title: `${this.names.join(', ')}\nA double click resets`
                })
            ),
            keys.mark,
            this.disc.root,
            element(
                'div',
                {class: `wheel-fields ${this.fields.length > 2 ? 'rgb' : 'xy'}`},
                ...this.fields.map(({field}) => field.root)
            ),
            this.level && element('div', {class: 'number-row'}, this.level.slider.root, this.level.field.root),
            keys.list
        );
        this.root.dataset.parameter = first.name;
    }

    show() {
        this.disc.update(this.mapping.point(this.local));
        for (const {parameter, i, field} of this.fields) field.update(this.values(parameter.name)[i]);
        if (this.level) {
            this.level.slider.update(this.values(this.level.name)[0]);
            this.level.field.update(this.values(this.level.name)[0]);
        }
    }
}

// What the controls are made of; they are made anew when it changes.
const shapeOf = (link) =>
    JSON.stringify(
        link.parameters.map(
            ({
                name,
                label,
                group,
                type,
                size,
                minimum,
                maximum,
                step,
                unit,
                widget,
                choices,
                wheel,
                default: original
            }) => [name, label, group, type, size, minimum, maximum, step, unit, widget, choices, wheel, original]
        )
    );

/** The controls of a link, which follow the state. */
export class Controls {
    #shape = '';
    #controls = [];

    constructor(link) {
        this.id = link.id;
        this.root = element('div', {class: 'controls'});
        this.update(link);
    }

    update(link) {
        const shape = shapeOf(link);
        if (shape !== this.#shape) {
            this.#shape = shape;
            this.#build(link);
        }
        for (const control of this.#controls) control.refresh();
    }

    #build(link) {
        const byName = new Map(link.parameters.map((parameter) => [parameter.name, parameter]));
        const inWheels = new Set();
        this.#controls = [];
        let wheels = null;
        const groups = new Map();
        const placeOf = (group) => {
            if (!group) return this.root;
            if (!groups.has(group)) {
                const box = element('fieldset', {class: 'group'}, element('legend', {text: group}));
                groups.set(group, box);
                this.root.append(box);
            }
            return groups.get(group);
        };
        this.root.replaceChildren();
        for (const parameter of link.parameters) {
            if (inWheels.has(parameter.name)) continue;
            const members = parameter.wheel?.of.map((name) => byName.get(name)).filter(Boolean) ?? [];
            const isWheel = members.length >= 3 || members.some(({size}) => size > 1);
            for (const {name} of isWheel ? members : []) inWheels.add(name);
            const control = isWheel
                ? new WheelControl(link, parameter, members)
                : new PlainControl(link, parameter);
            this.#controls.push(control);
            if (isWheel) {
                if (!wheels) {
                    wheels = element('div', {class: 'wheels'});
                    placeOf(parameter.group).append(wheels);
                }
                wheels.append(control.root);
            } else {
                wheels = null;
                placeOf(parameter.group).append(control.root);
            }
        }
        if (!link.parameters.length)
            this.root.append(
                element('p', {
                    class: 'quiet empty',
                    text: link.kind === 'lut' ? 'A LUT has no parameters.' : 'No parameters.'
                })
            );
    }
}

// Key frames of parameters: a mark that sets and removes the key at the frame that is shown, and the way to the others.

import {announce, element, icon, setText} from '../base/dom.js';
import {studio} from '../base/studio.js';
import {seek} from '../picture/transport.js';

const curves = [
    ['linear', 'linear'],
    ['smooth', 'smooth'],
    ['hold', 'hold']
];

/** The key frames of parameters that are keyed together: `mark` a button, `list` a line that shows when there are keys. */
export function keyFrames(link, ...names) {
    const found = () =>
        names
            .map((name) => studio.link(link)?.parameters.find((parameter) => parameter.name === name))
            .filter(Boolean);
    const all = () => {
        const byFrame = new Map();
        for (const key of found().flatMap((parameter) => parameter.keys ?? [])) {
            if (!byFrame.has(key.frame)) byFrame.set(key.frame, key);
        }
        return [...byFrame.values()].sort((a, b) => a.frame - b.frame);
    };
    const here = () => all().find((key) => key.frame === studio.frame);

    // Without a curve a new key has that of the one before.
    const setAll = (curve) =>
        studio.tell('key', {
            link,
            frame: studio.frame,
            parameters: Object.fromEntries(found().map(({name, values}) => [name, values])),
            curve,
            change: studio.nextChange()
        });
    const removeAll = () =>
        studio.tell('unkey', {
            link,
            frame: studio.frame,
            names: found()
                .filter(({keys}) => keys.some((key) => key.frame === studio.frame))
                .map(({name}) => name),
            change: studio.nextChange()
        });

    const mark = element(
        'button',
        {
            type: 'button',
            class: 'key',
            'aria-pressed': 'false',
            onclick: () => {
                const isKey = here();
                announce(isKey ? 'Key frame removed' : 'Key frame set');
                return isKey ? removeAll() : setAll();
            }
        },
        icon('M8 2l6 6-6 6-6-6z')
    );
    const go = (text, label, target) =>
        element('button', {
            type: 'button',
            class: 'small',
            'aria-label': label,
            title: label,
            text,
            onclick: () => {
                const key = target();
                if (key) seek(key.frame);
            }
        });
    const back = go('‹', 'To the key frame before', () => all().findLast((key) => key.frame < studio.frame));
    const on = go('›', 'To the next key frame', () => all().find((key) => key.frame > studio.frame));
    const place = element('span', {class: 'quiet'});
    const way = element(
        'select',
        {'aria-label': 'Course from this key frame to the next', onchange: ({target}) => setAll(target.value)},
        ...curves.map(([value, text]) => element('option', {value, text}))
    );
    const list = element('div', {class: 'keys', hidden: true}, element('span', {class: 'key-places'}, back, place, on), way);

    const update = () => {
        const keys = all();
        const key = here();
        const label = found()[0]?.label || names[0];
        mark.setAttribute('aria-pressed', String(Boolean(key)));
        mark.classList.toggle('keyed', keys.length > 0);
        mark.title = key ? 'Remove the key frame here' : 'Set a key frame here';
        mark.setAttribute('aria-label', `Key frame of ${label} here`);
        list.hidden = keys.length === 0;
        const count = `${keys.length} key${keys.length === 1 ? '' : 's'}`;
        setText(place, key ? `key ${keys.indexOf(key) + 1} of ${keys.length}` : count);
        way.disabled = !key;
        if (key) way.value = key.curve;
        mark.disabled = Boolean(studio.state?.clip.still);
    };
    return {mark, list, update};
}

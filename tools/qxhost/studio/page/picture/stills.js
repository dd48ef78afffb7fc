// The gallery of stills.

import {byId, element} from '../base/dom.js';
import {studio} from '../base/studio.js';
import {timeCodeOf} from '../base/timecode.js';

export function keepStill() {
    if (studio.state) studio.tell('still', {name: timeCodeOf(studio.frame, studio.state.clip)});
}

function show() {
    const list = byId('stills');
    const stills = studio.state.stills;
    const wanted = JSON.stringify([stills, studio.compare]);
    if (list.dataset.shown === wanted) return;
    list.dataset.shown = wanted;
    const isAgainst = (still) =>
        studio.compare.way !== 'none' && String(studio.compare.against) === String(still.id);
    const compare = (still) =>
        isAgainst(still)
            ? studio.setCompare({way: 'none', against: 'before'})
            : studio.setCompare({
                  way: studio.compare.way === 'none' ? 'wipe' : studio.compare.way,
                  against: still.id
              });
    const focused = document.activeElement?.dataset?.still;
    list.replaceChildren(
        ...stills.map((still) =>
            element(
                'li',
                {},
                element(
                    'button',
                    {
                        type: 'button',
                        class: 'still',
                        'aria-pressed': String(isAgainst(still)),
                        'data-still': still.id,
                        title: 'Compare with it',
                        onclick: () => compare(still)
                    },
                    element('img', {src: `still/${still.id}.jpg`, alt: ''}),
                    element('span', {text: still.name}),
                    element('span', {class: 'quiet', text: `frame ${still.frame}`})
                ),
                element('button', {
                    type: 'button',
                    class: 'small',
                    text: '×',
                    'aria-label': `Remove the still ${still.name}`,
                    title: 'Remove',
                    onclick: () => studio.tell('unstill', {still: still.id})
                })
            )
        )
    );
    if (focused) list.querySelector(`[data-still="${CSS.escape(focused)}"]`)?.focus();
}

export function startStills() {
    byId('still-keep').addEventListener('click', keepStill);
    studio.on('state', show);
    studio.on('compare', () => studio.state && show());
}

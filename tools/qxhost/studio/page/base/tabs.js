// The parts below the picture, one at a time; at phone width the chain is one of them, and what has no room else another.

import {byId} from './dom.js';
import {remember, remembered} from './memory.js';
import {studio} from './studio.js';

const tabs = [...document.querySelectorAll('[role=tab]')];
const narrow = matchMedia('(max-width: 899px)');

const visible = () => tabs.filter((tab) => narrow.matches || !tab.classList.contains('only-narrow'));

/** The name of the part that is shown. */
export const shownTab = () => document.body.dataset.tab;

/** Shows a part: grade, scopes, stills, text or more. */
export function showTab(name) {
    document.body.dataset.tab = name;
    for (const tab of tabs) {
        const isShown = tab.dataset.tab === name;
        tab.setAttribute('aria-selected', String(isShown));
        tab.tabIndex = isShown ? 0 : -1;
        if (tab.dataset.tab !== 'grade') byId(`panel-${tab.dataset.tab}`).hidden = !isShown;
    }
    studio.emit('tab', name);
}

// What the head and the line below the picture have no room for at phone width, with its place at others.
const more = [...document.querySelectorAll('[data-more]')].map((item) => {
    const place = document.createComment('');
    item.before(place);
    return {item, place};
});

function adapt() {
    for (const {item, place} of more) {
        if (narrow.matches) byId('panel-more').append(item);
        else place.after(item);
    }
    // The chain is a tab's panel only where there is a tab for it.
    byId('side').setAttribute('role', narrow.matches ? 'tabpanel' : 'region');
    if (narrow.matches) showTab('grade');
    else showTab(['grade', 'more'].includes(shownTab()) ? 'scopes' : shownTab());
}

// The line between picture and parts, by pointer and arrow keys.
function watchSplit() {
    const split = byId('split');
    const set = (height) => {
        const most = Math.max(160, window.innerHeight - 320);
        const to = Math.round(Math.min(most, Math.max(120, height)));
        document.documentElement.style.setProperty('--dock', `${to}px`);
        split.setAttribute('aria-valuenow', to);
        split.setAttribute('aria-valuemax', Math.round(most));
        remember('dock', to);
    };
    const now = () => document.querySelector('.dock').clientHeight;
    split.addEventListener('pointerdown', (event) => {
        const from = event.clientY;
        const height = now();
        split.setPointerCapture(event.pointerId);
        const moved = (e) => set(height + from - e.clientY);
        split.addEventListener('pointermove', moved);
        split.addEventListener('lostpointercapture', () => split.removeEventListener('pointermove', moved), {
            once: true
        });
    });
    split.addEventListener('keydown', (event) => {
        const by = {ArrowUp: 16, ArrowDown: -16, PageUp: 80, PageDown: -80}[event.key];
        if (!by) return;
        event.preventDefault();
        event.stopPropagation();
        set(now() + by);
    });
    if (remembered('dock')) set(Number(remembered('dock')));
}

export function startTabs() {
    for (const tab of tabs) {
        tab.addEventListener('click', () => showTab(tab.dataset.tab));
        tab.addEventListener('keydown', (event) => {
            const by = {ArrowLeft: -1, ArrowRight: 1}[event.key];
            if (!by) return;
            event.preventDefault();
            event.stopPropagation();
            const all = visible();
            const to = all[(all.indexOf(tab) + by + all.length) % all.length];
            showTab(to.dataset.tab);
            to.focus();
        });
    }
    narrow.addEventListener('change', adapt);
    adapt();
    watchSplit();
}

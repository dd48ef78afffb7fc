// What is asked in a dialog: the catalogue, looks, and the keys.

import {announce, byId, element} from '../base/dom.js';
import {remember, remembered} from '../base/memory.js';
import {studio} from '../base/studio.js';

const dialog = byId('dialog');

/** Opens the dialog with a title and contents; Escape and a click beside it close it. */
function openDialog(title, className, ...contents) {
    dialog.className = className;
    dialog.replaceChildren(
        element(
            'div',
            {class: 'dialog-head'},
            element('h2', {id: 'dialog-title', text: title}),
            element('button', {
                type: 'button',
                'aria-label': 'Close',
                text: '×',
                class: 'small',
                onclick: () => dialog.close()
            })
        ),
        ...contents.filter(Boolean)
    );
    if (!dialog.open) dialog.showModal();
    dialog.querySelector('[data-first]')?.focus();
}

export const isDialogOpen = () => dialog.open;

// A line in a dialog that says what went wrong or what was done.
function statusLine() {
    const line = element('p', {class: 'dialog-status', role: 'status'});
    return {
        root: line,
        say: (text, isError = false) => {
            line.classList.toggle('bad', isError);
            line.textContent = text;
        }
    };
}

function thumbnail(kind, name) {
    const address = `thumbnail/${kind}/${encodeURIComponent(name)}.jpg`;
    return element('img', {
        src: address,
        alt: '',
        loading: 'lazy',
        width: 160,
        height: 90,
        onerror: ({target}) => target.classList.add('missing')
    });
}

// An effect or a LUT to add. `pictures` are the thumbnails that are there already, so that none is drawn twice.
function catalogueItem(kind, entry, say, pictures) {
    // What cannot be drawn has no thumbnail, and of effects it is not known at once whether they can.
    const pictureOf = ({name, ok, reason}) => {
        if (kind === 'effect' && ok !== true) return element('span', {class: 'no-thumbnail reason', text: reason});
        const key = `${kind}/${name}`;
        if (!pictures.has(key)) pictures.set(key, thumbnail(kind, name));
        return pictures.get(key);
    };
    const add = async () => {
        const chosen = studio.state.chain.findIndex((link) => link.id === studio.selected);
        const at = chosen < 0 ? studio.state.chain.length : chosen + 1;
        try {
            const answer = await studio.request('add', {kind, name: entry.name, at, change: studio.nextChange()});
            announce(`${entry.name} added`);
            studio.select(answer.link ?? studio.state.chain[at]?.id ?? studio.selected);
            dialog.close();
        } catch (error) {
            say([error.message, ...(error.details ?? [])].join('\n'), true);
        }
    };
    return element(
        'li',
        {},
        element(
            'button',
            {
                type: 'button',
                'data-entry': `${kind}/${entry.name}`,
                onclick: add,
                disabled: entry.ok === false,
                title: entry.ok === false ? `${entry.file}\n${entry.reason}` : entry.file,
                'aria-label': entry.ok === false ? null : entry.name
            },
            pictureOf(entry),
            element('span', {text: entry.name})
        )
    );
}

/** The catalogue of effects and LUTs, each with the current frame drawn through it. */
function openCatalogue() {
    const status = statusLine();
    const search = element('input', {
        type: 'search',
        'aria-label': 'Search',
        placeholder: 'Search',
        'data-first': ''
    });
    const place = element('div', {class: 'catalogue-place'});
    const pictures = new Map();
    // By kind and name: what is listed, and what it was made from.
    const items = new Map();
    const itemOf = (kind, entry) => {
        const key = `${kind}/${entry.name}`;
        const told = JSON.stringify(entry);
        if (items.get(key)?.told !== told) {
            const item = catalogueItem(kind, entry, status.say, pictures);
            items.set(key, {told, item});
        }
        return items.get(key).item;
    };
    const fill = () => {
        const text = search.value.trim().toLowerCase();
        const {effects, luts} = studio.catalogue;
        const part = (title, kind, entries) => {
            const all = entries.map((entry) => ({name: entry.name.toLowerCase(), item: itemOf(kind, entry)}));
            const found = all.filter(({name}) => name.includes(text)).map(({item}) => item);
            const list = element('ul', {class: 'catalogue'}, ...found);
            return entries.length ? [element('h3', {text: title}), list] : [];
        };
        place.replaceChildren(...part('Effects', 'effect', effects), ...part('LUTs', 'lut', luts));
        if (!effects.length && !luts.length)
            place.append(element('p', {class: 'quiet', text: 'Nothing is there to add.'}));
    };
    search.addEventListener('input', fill);
    openDialog('Add to the chain', 'wide', search, status.root, place);
    fill();
    // What is learnt of one entry leaves the others alone, one of which may be pressed just now.
    const again = () => {
        if (!dialog.open || !place.isConnected) return;
        const {effects, luts} = studio.catalogue;
        const listed = [...effects.map((entry) => ['effect', entry]), ...luts.map((entry) => ['lut', entry])];
        if (listed.length !== items.size || listed.some(([kind, {name}]) => !items.has(`${kind}/${name}`))) {
            items.clear();
            fill();
            return;
        }
        for (const [kind, entry] of listed) {
            const {item} = items.get(`${kind}/${entry.name}`);
            const isChosen = item.contains(document.activeElement);
            const now = itemOf(kind, entry);
            if (now === item) continue;
            item.replaceWith(now);
            if (isChosen) now.querySelector('button').focus();
        }
    };
    studio.addEventListener('catalogue', again);
    dialog.addEventListener('close', () => studio.removeEventListener('catalogue', again), {once: true});
    studio.tell('catalogue');
}

const withEnding = (name, ending) => (name.endsWith(ending) ? name : name + ending);

/** Saves the look under the name that it has; asks for one where it has none. */
export function saveLook() {
    if (studio.state?.look)
        studio
            .request('save')
            .then(() => announce('The look is saved'))
            .catch((error) => askLookName(error.message));
    else askLookName();
}

/** Asks for the name of a look and saves it. */
function askLookName(problem = '') {
    const status = statusLine();
    const name = element('input', {
        type: 'text',
        required: true,
        'data-first': '',
        spellcheck: 'false',
        id: 'look-file',
        value: studio.state?.look.split('/').at(-1) || 'untitled.look.toml'
    });
    const replace = element('input', {type: 'checkbox', id: 'look-replace'});
    const form = element(
        'form',
        {
            onsubmit: async (event) => {
                event.preventDefault();
                try {
                    const answer = await studio.request('save', {
                        file: withEnding(name.value.trim(), '.look.toml'),
                        overwrite: replace.checked
                    });
                    announce(`The look is saved as ${answer.file ?? name.value}`);
                    dialog.close();
                } catch (error) {
                    status.say([error.message, ...(error.details ?? [])].join('\n'), true);
                }
            }
        },
        element('label', {}, 'File', name),
        element('label', {class: 'inline'}, replace, 'replace a file that is there'),
        element('p', {class: 'quiet', text: 'qxhost convert --look FILE applies it.'}),
        element('div', {class: 'bar'}, element('button', {type: 'submit', class: 'main', text: 'Save'}))
    );
    openDialog('Save the look', 'narrow', form, status.root);
    name.select();
    if (problem) status.say(problem, true);
}

/** Lists the looks and opens one in place of the chain. */
async function openLook() {
    const status = statusLine();
    const list = element('ul', {class: 'files'});
    openDialog('Open a look', 'narrow', list, status.root);
    const open = async (file) => {
        try {
            await studio.request('open', {file, change: studio.nextChange()});
            dialog.close();
        } catch (error) {
            status.say([error.message, ...(error.details ?? [])].join('\n'), true);
        }
    };
    try {
        const {files} = await studio.request('looks');
        list.append(
            ...files.map((file) =>
                element('li', {}, element('button', {type: 'button', text: file, onclick: () => open(file)}))
            )
        );
        if (!files.length) status.say('There is no *.look.toml in the folder of looks.');
        list.querySelector('button')?.focus();
    } catch (error) {
        status.say(error.message, true);
    }
}

/** Exports the chain as a .cube, and says how well it says the same. */
function exportLook() {
    const status = statusLine();
    const stem = (studio.state?.look || 'untitled')
        .split('/')
        .at(-1)
        .replace(/\.look\.toml$/, '');
    const name = element('input', {
        type: 'text',
        required: true,
        value: `${stem}.cube`,
        spellcheck: 'false',
        'data-first': '',
        id: 'export-file'
    });
    const size = element(
        'select',
        {},
        ...[17, 33, 65].map((count) => element('option', {value: count, text: `${count} points a side`}))
    );
    size.value = 33;
    const replace = element('input', {type: 'checkbox'});
    const form = element(
        'form',
        {
            onsubmit: async (event) => {
                event.preventDefault();
                status.say('Computing …');
                try {
                    const answer = await studio.request('export', {
                        file: withEnding(name.value.trim(), '.cube'),
                        size: Number(size.value),
                        overwrite: replace.checked
                    });
                    status.say(`Written: ${answer.file}. The largest error is ${answer.errorText}.`);
                } catch (error) {
                    status.say([error.message, ...(error.details ?? [])].join('\n'), true);
                }
            }
        },
        element('label', {}, 'File', name),
        element('label', {}, 'Size', size),
        element('label', {class: 'inline'}, replace, 'replace a file that is there'),
        element('p', {class: 'quiet', text: 'Parameters with key frames have their values of this frame.'}),
        element('div', {class: 'bar'}, element('button', {type: 'submit', class: 'main', text: 'Export'}))
    );
    openDialog('Export a .cube', 'narrow', form, status.root);
    name.select();
}

/** The keys, and whether those of one letter are on. */
export function openHelp(keys) {
    const single = element('input', {
        type: 'checkbox',
        onchange: ({target}) => remember('single-keys', target.checked ? 'on' : 'off')
    });
    single.checked = remembered('single-keys') !== 'off';
    const rows = keys.map(([key, text]) =>
        element(
            'tr',
            {},
            element('th', {scope: 'row'}, ...key.split(' ').map((part) => element('kbd', {text: part}))),
            element('td', {text})
        )
    );
    openDialog(
        'Keys',
        'narrow',
        element('label', {class: 'inline'}, single, 'keys without Control are on'),
        element('table', {class: 'keys-table'}, element('tbody', {}, ...rows)),
        window.CodeMirror
            ? element(
                  'p',
                  {class: 'quiet notice'},
                  'The text editor is CodeMirror 5: ',
                  element('a', {href: 'codemirror/copyright.txt', target: '_blank', text: 'its licence'}),
                  '.'
              )
            : null
    );
}

export function startDialogs() {
    byId('chain-add').addEventListener('click', openCatalogue);
    byId('look-open').addEventListener('click', openLook);
    byId('look-save').addEventListener('click', () => askLookName());
    byId('look-export').addEventListener('click', exportLook);
    dialog.addEventListener('click', (event) => {
        if (event.target === dialog) dialog.close();
    });
}

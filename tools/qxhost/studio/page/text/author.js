// The author's side: the text of an effect, the messages of the compiler at their places, and writing the file.

import {announce, byId, element, setText} from '../base/dom.js';
import {showTab} from '../base/tabs.js';
import {studio} from '../base/studio.js';

const chosen = byId('text-file');
const status = byId('text-status');
const conflictBox = byId('text-conflict');

// The open file: its digest when it was read, and the text that was read or written last.
// Editors know one kind of line end; the file keeps its own.
let open = {file: '', digest: '', text: null, lineEnd: '\n'};
let editor = null;
let marked = [];

// CodeMirror where it was compiled in, else a plain field: both behind the same few functions.
function plainEditor() {
    const field = element('textarea', {
        spellcheck: 'false',
        autocomplete: 'off',
        'aria-label': 'Text of the effect',
        wrap: 'off'
    });
    byId('text-place').append(field);
    field.addEventListener('input', showStatus);
    return {
        text: () => field.value,
        setText: (text) => {
            field.value = text;
        },
        mark: () => {},
        goTo: (line, column) => {
            const lines = field.value.split('\n');
            const at =
                lines.slice(0, line - 1).reduce((sum, l) => sum + l.length + 1, 0) + Math.max(0, column - 1);
            field.focus();
            field.setSelectionRange(at, at);
            field.scrollTop = (line - 4) * parseFloat(getComputedStyle(field).lineHeight);
        },
        refresh: () => {}
    };
}

function codeMirror() {
    const mirror = window.CodeMirror(byId('text-place'), {
        mode: hlsl,
        lineNumbers: true,
        matchBrackets: true,
        inputStyle: 'contenteditable',
        indentUnit: 4,
        gutters: ['messages', 'CodeMirror-linenumbers'],
        extraKeys: {
            // Tab moves on, as everywhere else on the page; indenting has keys of its own.
            'Tab': false,
            'Shift-Tab': false,
            'Ctrl-]': 'indentMore',
            'Ctrl-[': 'indentLess',
            'Ctrl-/': 'toggleComment'
        }
    });
    const input = mirror.getInputField();
    for (const [name, value] of [
        ['role', 'textbox'],
        ['aria-multiline', 'true'],
        ['aria-label', 'Text of the effect']
    ])
        input.setAttribute(name, value);
    mirror.on('change', showStatus);
    return {
        text: () => mirror.getValue(),
        setText: (text) => {
            const {left, top} = mirror.getScrollInfo();
            const cursor = mirror.getCursor();
            mirror.setValue(text);
            mirror.setCursor(cursor, null, {scroll: false});
            mirror.scrollTo(left, top);
        },
        mark: (messages) => markMirror(mirror, messages),
        goTo: (line, column) => {
            mirror.focus();
            mirror.setCursor(line - 1, Math.max(0, column - 1));
            mirror.scrollIntoView(null, 60);
        },
        refresh: () => mirror.refresh()
    };
}

const words = (text) => Object.fromEntries(text.split(' ').map((word) => [word, true]));
const types = ['float', 'half', 'int', 'uint', 'bool'].flatMap((type) => [
    type,
    ...[1, 2, 3, 4].flatMap((n) => [type + n, ...[1, 2, 3, 4].map((m) => `${type}${n}x${m}`)])
]);
const hlsl = {
    name: 'clike',
    keywords: words(
        'if else for while do return break continue discard static const uniform inout in out struct technique pass ' +
            'compile register sampler_state texture sampler sampler2D texture2D matrix vector string void'
    ),
    types: words(types.join(' ')),
    blockKeywords: words('if else for while do struct technique pass'),
    atoms: words('true false NULL'),
    hooks: {
        '#': (stream) => {
            stream.skipToEnd();
            return 'meta';
        }
    }
};

function markMirror(mirror, messages) {
    mirror.clearGutter('messages');
    marked.forEach((mark) => mark.clear());
    marked = [];
    for (const {line, column, severity, text} of messages) {
        if (!line || line > mirror.lineCount()) continue;
        mirror.setGutterMarker(
            line - 1,
            'messages',
            element('span', {class: `gutter-mark ${severity}`, title: text, text: '●'})
        );
        const from = {line: line - 1, ch: Math.max(0, (column || 1) - 1)};
        const word = mirror.findWordAt(from);
        const to = word.head.ch > from.ch ? word.head : {line: line - 1, ch: mirror.getLine(line - 1).length};
        marked.push(mirror.markText(from, to, {className: `marked-${severity}`, attributes: {title: text}}));
        marked.push({clear: () => mirror.removeLineClass(line - 1, 'background', `line-${severity}`)});
        mirror.addLineClass(line - 1, 'background', `line-${severity}`);
    }
}

function script(address) {
    return new Promise((resolve) => {
        document.head.append(
            element('script', {src: address, onload: () => resolve(true), onerror: () => resolve(false)})
        );
    });
}

async function loadEditor() {
    if (!(await script('codemirror/lib/codemirror.js')) || !window.CodeMirror) return plainEditor();
    document.head.append(element('link', {rel: 'stylesheet', href: 'codemirror/lib/codemirror.css'}));
    for (const address of ['mode/clike/clike.js', 'addon/edit/matchbrackets.js', 'addon/comment/comment.js'])
        await script(`codemirror/${address}`);
    return codeMirror();
}

const withPlainEnds = (text) => text.replace(/\r\n?/g, '\n');

const editable = () => (studio.state?.chain ?? []).filter((link) => link.editable);
const isChanged = () => open.text !== null && editor.text() !== open.text;

function messagesOf(file) {
    const link = editable().find((l) => l.file === file);
    const errors = link?.error
        ? link.error.messages?.length
            ? link.error.messages
            : [{line: 0, column: 0, severity: 'error', text: link.error.text}]
        : [];
    const warnings = (link?.warnings ?? []).map((w) =>
        typeof w === 'string' ? {line: 0, column: 0, severity: 'warning', text: w} : w
    );
    return [...errors, ...warnings].map((message) => {
        const isElsewhere = message.file && message.file !== file;
        return isElsewhere
            ? {...message, line: 0, text: `${message.file}:${message.line}:${message.column}: ${message.text}`}
            : message;
    });
}

function showStatus() {
    if (!editor) return;
    byId('text-write').disabled = !open.file || !isChanged();
    setText(status, !open.file ? '' : isChanged() ? 'changed, not written' : '');
}

function showMessages() {
    const messages = messagesOf(open.file);
    const list = byId('text-messages');
    const wanted = JSON.stringify([open.file, messages]);
    if (list.dataset.shown === wanted || !editor) return;
    list.dataset.shown = wanted;
    list.replaceChildren(
        ...messages.map(({line, column, severity, text}) =>
            element(
                'li',
                {class: severity},
                line
                    ? element('button', {
                          type: 'button',
                          text: `${line}:${column || 1}`,
                          title: 'Go there',
                          onclick: () => editor.goTo(line, column || 1)
                      })
                    : null,
                element('span', {class: 'severity', text: severity}),
                element('span', {text})
            )
        )
    );
    editor.mark(messages);
}

function showPasses() {
    const link = editable().find((l) => l.file === open.file);
    const passes = (link?.passes ?? []).filter((pass) => pass.milliseconds !== null);
    const rows = passes.map(({name, milliseconds}) =>
        element(
            'tr',
            {},
            element('th', {scope: 'row', text: name}),
            element('td', {class: 'number', text: `${milliseconds.toFixed(2)} ms`})
        )
    );
    byId('text-passes').replaceChildren(
        ...(rows.length ? [element('caption', {text: 'Time per pass'}), element('tbody', {}, ...rows)] : [])
    );
}

function showFiles() {
    const files = [...new Set(editable().map((link) => link.file))];
    if (chosen.dataset.files !== files.join('\n')) {
        chosen.dataset.files = files.join('\n');
        chosen.replaceChildren(
            ...files.map((file) => element('option', {value: file, text: file.split('/').at(-1), title: file}))
        );
        if (!files.length)
            chosen.append(element('option', {value: '', text: 'none: name effect files on the command line'}));
    }
    if (!files.includes(open.file) && open.file) read('');
    if (!open.file && files.length && editor) read(files[0]);
    chosen.value = open.file;
}

async function read(file) {
    if (
        isChanged() &&
        file !== open.file &&
        !window.confirm(`The changes to ${open.file} are not written. Leave them?`)
    ) {
        chosen.value = open.file;
        return;
    }
    open = {file, digest: '', text: null, lineEnd: '\n'};
    hideConflict();
    if (!file) {
        editor.setText('');
        showStatus();
        return;
    }
    try {
        take(await studio.request('read', {file}));
    } catch (error) {
        setText(status, error.message);
    }
}

function take({file, text, digest}) {
    if (file !== undefined && file !== open.file) return;
    open.digest = digest;
    open.lineEnd = text.includes('\r\n') ? '\r\n' : '\n';
    open.text = withPlainEnds(text);
    // Without the check a read would move the cursor of a text that is the same.
    if (editor.text() !== open.text) editor.setText(open.text);
    showStatus();
    showMessages();
    showPasses();
    editor.mark(messagesOf(open.file));
}

/** Writes the open file, if it is still what was read. */
export async function writeFile(digest = open.digest) {
    if (!open.file) return;
    const text = editor.text();
    try {
        const answer = await studio.request('write', {
            file: open.file,
            text: text.replaceAll('\n', open.lineEnd),
            digest,
            change: studio.nextChange()
        });
        open.digest = answer.digest;
        open.text = text;
        hideConflict();
        showStatus();
        setText(status, editor.text() === text ? 'written' : 'changed, not written');
        announce('The file is written');
    } catch (error) {
        if (conflictBox.hidden) setText(status, `not written: ${error.message}`);
    }
}

function hideConflict() {
    conflictBox.hidden = true;
    conflictBox.replaceChildren();
}

// A text that nobody changed here follows the file; one that was is never overwritten without a word.
function conflicted({file, text, digest}) {
    if (file !== open.file || !editor) return;
    if (!isChanged() || editor.text() === withPlainEnds(text)) {
        take({file, text, digest});
        setText(status, 'read again: the file was changed outside');
        return;
    }
    const theirs = element('pre', {class: 'theirs', tabindex: '0', 'aria-label': 'The text of the file', text});
    conflictBox.replaceChildren(
        element('p', {text: `${file} was changed outside since it was read. Nothing is overwritten.`}),
        element('details', {}, element('summary', {text: 'The text of the file'}), theirs),
        element(
            'div',
            {class: 'bar'},
            element('button', {
                type: 'button',
                text: 'Take the file',
                onclick: () => {
                    hideConflict();
                    take({file, text, digest});
                }
            }),
            element('button', {type: 'button', text: 'Write mine over it', onclick: () => writeFile(digest)})
        )
    );
    conflictBox.hidden = false;
    setText(status, 'conflict');
}

/** Opens the text of a link's file. */
export function openFileOf(link) {
    showTab('text');
    if (link.file !== open.file) read(link.file).then(() => goToFirst());
    else goToFirst();
}

function goToFirst() {
    const first = messagesOf(open.file).find(({line}) => line);
    if (first) editor.goTo(first.line, first.column || 1);
}

export const isTextFocused = () => byId('panel-text').contains(document.activeElement);

export async function startAuthor() {
    editor = await loadEditor();
    chosen.addEventListener('change', () => read(chosen.value));
    byId('text-write').addEventListener('click', () => writeFile());
    studio.on('tab', (tab) => tab === 'text' && editor.refresh());
    studio.on('state', () => {
        showFiles();
        showMessages();
        showPasses();
    });
    // After a restart the file may have changed meanwhile.
    studio.on('session', async () => {
        if (!open.file || open.text === null) return;
        try {
            const answer = await studio.request('read', {file: open.file});
            if (answer.digest !== open.digest) conflicted({file: open.file, ...answer});
        } catch (error) {
            setText(status, error.message);
        }
    });
    studio.on('file', take);
    studio.on('conflict', conflicted);
    window.addEventListener('beforeunload', (event) => {
        if (isChanged()) event.preventDefault();
    });
    if (studio.state) showFiles();
    showStatus();
}

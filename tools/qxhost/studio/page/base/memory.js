// What this browser remembers of the page from one time to the next, where it is allowed to.

/** What was remembered under a name; null if nothing was, or the browser keeps nothing. */
export function remembered(name) {
    try {
        return localStorage.getItem(`studio ${name}`);
    } catch {
        return null;
    }
}

/** Remembers a text under a name. */
export function remember(name, text) {
    try {
        localStorage.setItem(`studio ${name}`, text);
    } catch {
        // A browser that keeps nothing shows the page as it is at first.
    }
}

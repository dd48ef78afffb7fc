// Time codes and frames. Frames count from 0; the clip says the time code of frame 0.

// Time codes of 29.97 and 59.94 frames a second with a semicolon drop numbers, not frames: the first of each minute
// but the tenth.
function dropped(rate, isDrop) {
    const perSecond = Math.round(rate[0] / rate[1]);
    return isDrop ? Math.round(perSecond / 15) : 0;
}

function toCount(text, rate) {
    const parts = /^(\d+):(\d\d?):(\d\d?)([:;.])(\d+)$/.exec(text.trim());
    if (!parts) return null;
    const perSecond = Math.round(rate[0] / rate[1]);
    const [hours, minutes, seconds, frames] = [parts[1], parts[2], parts[3], parts[5]].map(Number);
    if (minutes > 59 || seconds > 59 || frames >= perSecond) return null;
    const allMinutes = hours * 60 + minutes;
    const drop = dropped(rate, parts[4] === ';');
    return (allMinutes * 60 + seconds) * perSecond + frames - drop * (allMinutes - Math.floor(allMinutes / 10));
}

function fromCount(count, rate, isDrop) {
    const perSecond = Math.round(rate[0] / rate[1]);
    const drop = dropped(rate, isDrop);
    let number = count;
    if (drop) {
        const perMinute = perSecond * 60 - drop;
        const perTen = perMinute * 10 + drop;
        const rest = count % perTen;
        number += drop * 9 * Math.floor(count / perTen);
        if (rest >= perSecond * 60) number += drop * (1 + Math.floor((rest - perSecond * 60) / perMinute));
    }
    const two = (value) => String(value).padStart(2, '0');
    const seconds = Math.floor(number / perSecond);
    return (
        `${two(Math.floor(seconds / 3600))}:${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}` +
        `${isDrop ? ';' : ':'}${two(number % perSecond)}`
    );
}

/** The time code of a frame, counted from 00:00:00:00 where the clip has none. */
export function timeCodeOf(frame, clip) {
    const isDrop = clip.timeCode.includes(';');
    const first = clip.timeCode ? (toCount(clip.timeCode, clip.rate) ?? 0) : 0;
    return fromCount(first + frame, clip.rate, isDrop);
}

/** The frame that a text names, a number or a time code; null if it names none. */
export function frameOf(text, clip) {
    if (/^\s*\d+\s*$/.test(text)) return Number(text);
    const count = toCount(text, clip.rate);
    if (count === null) return null;
    return count - (clip.timeCode ? (toCount(clip.timeCode, clip.rate) ?? 0) : 0);
}

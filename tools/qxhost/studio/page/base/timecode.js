// Time codes and frames. Frames count from 0; the clip says the time code of frame 0. Codes count as those that
// conversions write: from 00:00:00:00 where the clip has none, and anew after 24 hours.

// How a clip's codes count. Those of 29.97 and 59.94 frames a second may drop numbers, not frames: the first of each
// minute but the tenth. A semicolon or a point says so.
function countingOf({rate, timeCode}) {
    const perSecond = rate[0] > 0 ? Math.max(1, Math.round(rate[0] / rate[1])) : 25;
    const mayDrop = perSecond % 30 === 0 && Math.abs((rate[0] / rate[1]) * 1.001 - perSecond) < 0.015;
    const drop = mayDrop && (!timeCode || /[;.]\d+$/.test(timeCode)) ? perSecond / 15 : 0;
    const perMinute = perSecond * 60 - drop;
    return {perSecond, drop, perMinute, perTen: perMinute * 10 + drop};
}

// Frames from 00:00:00:00 to a code, and whether its number is one that is dropped; null if it is no code.
function toCount(text, {perSecond, drop}) {
    const parts = /^(\d+)[:;.](\d\d?)[:;.](\d\d?)[:;.](\d+)$/.exec(text.trim());
    if (!parts) return null;
    const [hours, minutes, seconds, frames] = parts.slice(1).map(Number);
    if (hours > 23 || minutes > 59 || seconds > 59 || frames >= perSecond) return null;
    const allMinutes = hours * 60 + minutes;
    const isDropped = minutes % 10 !== 0 && seconds === 0 && frames < drop;
    const number = (allMinutes * 60 + seconds) * perSecond + (isDropped ? drop : frames);
    return {count: number - drop * (allMinutes - Math.floor(allMinutes / 10)), isDropped};
}

const firstOf = (clip, counting) => toCount(clip.timeCode, counting)?.count ?? 0;
const withinDay = (count, {perTen}) => ((count % (perTen * 144)) + perTen * 144) % (perTen * 144);

/** The time code of a frame. */
export function timeCodeOf(frame, clip) {
    const counting = countingOf(clip);
    const {perSecond, drop, perMinute, perTen} = counting;
    const count = withinDay(firstOf(clip, counting) + frame, counting);
    const rest = count % perTen;
    const fullMinute = perSecond * 60;
    const minutes = rest < fullMinute ? 0 : 1 + Math.floor((rest - fullMinute) / perMinute);
    const number = count + drop * (9 * Math.floor(count / perTen) + minutes);
    const two = (value) => String(value).padStart(2, '0');
    const seconds = Math.floor(number / perSecond);
    return (
        `${two(Math.floor(seconds / 3600))}:${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}` +
        `${drop ? ';' : ':'}${two(number % perSecond)}`
    );
}

/** The frame that a text names, a number or a time code; null if it names none. */
export function frameOf(text, clip) {
    if (/^\s*\d+\s*$/.test(text)) return Number(text);
    const counting = countingOf(clip);
    const code = toCount(text, counting);
    if (code === null || code.isDropped) return null;
    return withinDay(code.count - firstOf(clip, counting), counting);
}

// Figures and names as people read them. What was not measured is null and reads "–".

export const ABSENT = '–';

function scaled(value, step, units) {
    let unit = 0;
    while (Math.abs(value) >= step && unit < units.length - 1) {
        value /= step;
        ++unit;
    }
    return `${value.toFixed(unit === 0 || value >= 100 ? 0 : 1)} ${units[unit]}`;
}

const format = (write) => (value) => ((value ?? null) === null ? ABSENT : write(value));

export const percent = format((value) => `${value.toFixed(0)} %`);
const BIT_RATES = ['bit/s', 'kbit/s', 'Mbit/s', 'Gbit/s', 'Tbit/s'];
export const bitRate = format((value) => scaled(value, 1000, BIT_RATES));
const BYTES = ['B', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB'];
export const bytes = format((value) => scaled(value, 1024, BYTES));
export const count = format((value) => value.toFixed(0));

/** For the round numbers of an axis: "50 MiB" instead of "50.0 MiB". */
export const round = (write) => (value) => write(value).replace('.0 ', ' ');

/** "7 s", "3 min", "2 h" */
export function duration(seconds) {
    return seconds < 120 ? `${Math.round(seconds)} s`
        : seconds < 7200 ? `${Math.round(seconds / 60)} min` : `${Math.round(seconds / 3600)} h`;
}

export function clock(milliseconds) {
    return new Date(milliseconds).toLocaleTimeString([], {hour12: false});
}

/** A name that others chose, with what has no shape or turns the direction of text spelled out. */
export function visible(name) {
    return name.replace(/[\p{Cc}\p{Cf}\p{Cs}\p{Co}\p{Zl}\p{Zp}]/gu,
        (character) => `\\u{${character.codePointAt(0).toString(16)}}`);
}

// The page: asks the monitor for the past hour once and for each report from then on, and shows
// them. What it shows at any time is what `show` makes of `state`.
import {Card, element} from './card.js';
import {panelsOf} from './panels.js';
import {Past} from './past.js';
import {clock, duration, percent, visible} from './format.js';

const TIMEOUT = 8000;           // milliseconds
const RETRY = 1000;
const LATE_INTERVALS = 3;       // figures older than this are told to be old
const SHORTEST_SPAN = 60 * 1000;

const state = {
    past: new Past(),
    report: null,
    reportAge: 0,       // seconds, when it arrived
    arrived: 0,         // performance.now() then
    silentSince: null,  // performance.now() when the monitor stopped to answer
    synced: false,      // whether the past holds all that the monitor remembers
    minutes: 60,
    zoom: null,         // [from, to] in milliseconds
    moment: null,       // in milliseconds, that is pointed at
};
const cards = new Map();
const byId = (id) => document.getElementById(id);

async function ask(path) {
    const response = await fetch(path, {cache: 'no-store', signal: AbortSignal.timeout(TIMEOUT)});
    if (!response.ok) throw new Error(`${path}: ${response.status}`);
    return {json: await response.json(), date: Date.parse(response.headers.get('Date'))};
}

async function askHistory() {
    const since = Math.floor((state.past.times.at(-1) ?? 0) / 1000);
    const {json} = await ask(since > 0 ? `history.json?since=${since}` : 'history.json');
    byId('host').textContent = visible(json.host);
    byId('version').textContent = `corvane-monitor ${json.version}`;
    state.past.addHistory(json);
    state.synced = json.interval_seconds !== null;  // else there is no report yet
}

async function askReport() {
    const {json, date} = await ask('report.json');
    const time = Date.parse(json.time);
    state.synced = time - state.past.times.at(-1) < 1.5 * state.past.interval;
    if (!state.synced) await askHistory();
    state.past.addReport(json);
    state.report = json;
    state.reportAge = Math.max(0, (date - time) / 1000);
    state.arrived = performance.now();
}

function age() {
    return state.reportAge + (performance.now() - state.arrived) / 1000;
}

/** Milliseconds until the next report should be there. */
function wait() {
    if (state.silentSince !== null || state.report === null) return RETRY;
    return Math.min(Math.max(state.past.interval - 1000 * age() + 200, RETRY), state.past.interval);
}

async function follow() {
    try {
        if (!state.synced) await askHistory();
        if (state.synced) await askReport();
        state.silentSince = null;
    } catch (error) {
        state.silentSince ??= performance.now();
        state.synced = false;
    }
    show();
    setTimeout(follow, wait());
}

/** What the header says, and how: live, waiting, late or silent. */
function condition() {
    if (state.silentSince !== null) {
        const silent = duration((performance.now() - state.silentSince) / 1000);
        const old = state.report ? `; figures are ${duration(age())} old` : '';
        return ['silent', `No answer from the monitor for ${silent}${old}`];
    }
    if (state.report === null) return ['waiting', 'No figures yet: the first report is being made'];
    if (state.moment !== null) return ['past', `At ${clock(state.moment)}`];
    if (age() > LATE_INTERVALS * state.past.interval / 1000) {
        return ['late', `Figures are ${duration(age())} old: the monitor is held up`];
    }
    return ['live', `Live, figures ${duration(age())} old`];
}

function showCondition() {
    const [name, text] = condition();
    byId('state').dataset.state = name;
    byId('state').textContent = text;
    document.body.classList.toggle('outdated', name === 'silent' || name === 'late');
}

function showNotes() {
    const {notes = [], failed = [], stale = [], reasons = {}} = state.report ?? {};
    const told = (family, what) =>
        `${visible(family)} ${what}: ${visible(reasons[family] ?? 'no reason known')}`;
    const lines = [...failed.map((family) => ['failed', told(family, 'is not measured')]),
                   ...stale.map((family) => ['stale', told(family, 'is from an earlier cycle')]),
                   ...notes.map((note) => ['note', visible(note)])];
    byId('notes').hidden = lines.length === 0;
    byId('notes').replaceChildren(...lines.map(([kind, text]) => element('li', kind, text)));
}

/** From when to when the plots go. */
function span() {
    if (state.zoom !== null) return state.zoom;
    const to = state.past.times.at(-1);
    const from = Math.max(to - state.minutes * 60 * 1000, state.past.times[0]);
    return [Math.min(from, to - SHORTEST_SPAN), to];
}

function colours() {
    const style = getComputedStyle(document.documentElement);
    const colour = (name) => style.getPropertyValue(name).trim();
    return {
        lines: [colour('--line0'), colour('--line1')],
        grid: colour('--grid'),
        mark: colour('--muted'),
        heat: colour('--heat').split(' ').map(Number),
    };
}

/** The row that is pointed at, or null. */
function pointedAt() {
    const row = state.past.times.lastIndexOf(state.moment);
    return row < 0 ? null : row;
}

function tell(panels) {
    const row = pointedAt() ?? state.past.last;
    const reasons = state.moment === null ? state.report?.reasons ?? {} : null;
    for (const panel of panels) cards.get(panel.id).tell(panel, row, reasons);
    showCondition();
}

function placeCards(panels) {
    const wanted = new Set(panels.map((panel) => panel.id));
    for (const [id, card] of cards) {
        if (!wanted.has(id)) {
            card.remove();
            cards.delete(id);
        }
    }
    panels.forEach((panel, index) => {
        if (!cards.has(panel.id)) cards.set(panel.id, new Card(panel, {hover, zoom}));
        const {root} = cards.get(panel.id);
        const there = byId('cards').children[index] ?? null;
        if (there !== root) byId('cards').insertBefore(root, there);
    });
}

function show() {
    const panels = panelsOf(state.past, state.report);
    placeCards(panels);
    tell(panels);
    showNotes();
    byId('follow').hidden = state.zoom === null;
    if (state.past.last < 0) return;
    const busy = panels[0].lines[0].at(state.past.last);
    document.title = `${byId('host').textContent}: CPU ${percent(busy)}`;
    if (document.hidden) return;
    const colourSet = colours();
    for (const panel of panels) cards.get(panel.id).draw(panel, state.past, span(), colourSet);
    for (const card of cards.values()) card.select(pointedAt());
}

/** @param row of the past, or null when the pointer has left */
function hover(row) {
    const moment = row === null ? null : state.past.times[row];
    if (state.moment === moment) return;
    state.moment = moment;
    for (const card of cards.values()) card.select(row);
    tell(panelsOf(state.past, state.report));
}

function zoom(from, to) {
    const [first, last] = [state.past.times[0], state.past.times.at(-1)];
    state.zoom = from <= first && to >= last ? null : [from, to];
    show();
}

const spanButtons = [...document.querySelectorAll('[data-minutes]')];
for (const button of spanButtons) {
    button.addEventListener('click', () => {
        state.minutes = Number(button.dataset.minutes);
        state.zoom = null;
        for (const other of spanButtons) other.ariaPressed = String(other === button);
        show();
    });
}
byId('follow').addEventListener('click', () => {
    state.zoom = null;
    show();
});
document.addEventListener('visibilitychange', show);
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', show);
setInterval(showCondition, 1000);
follow();

// What the page shows: one panel for each thing that is measured, as plain data.
//
// panel: {id, kind, name, detail, families, axis, top, least, binary, lines, facts, cores}
//   axis    format of the axis; top: its fixed end, or null; least: the least that it spans;
//           binary: whether round numbers are powers of two
//   lines   {label, at(row), format}: drawn, the first one solid, the second one dashed
//   facts   {label, text(row), now}: told beside the plot; `now`: the past does not know it
//   cores   only for the cores: {names, busy: at(row) of each}, drawn instead of lines
import * as format from './format.js';

const PERCENT_AXIS = {axis: format.percent, top: 100};

const line = (label, at, write) => ({label, at, format: write});
const fact = (label, text) => ({label, text});
const factOfNow = (label, text) => ({label, text: () => text, now: true});

const ratio = (part, whole) => (part === null || !whole ? null : 100 * part / whole);
const bits = (value) => (value === null ? null : 8 * value);
const mebibytes = (value) => (value === null ? null : 1024 * 1024 * value);
const partOf = (part, whole) => `${format.bytes(part)} of ${format.bytes(whole)}`;

function cpu(past) {
    const at = (figure) => past.figure('cpu', '', figure);
    const [limit, peak, latest] = ['limit_percent', 'peak_percent', 'latest_percent'].map(at);
    const busyCores = (row) => (latest(row) === null
        ? format.ABSENT
        : `${(latest(row) / 100).toFixed(1)} of ${limit(row) / 100} cores`);
    return {
        id: 'cpu', kind: 'CPU', name: '', detail: '', families: ['cpu'], ...PERCENT_AXIS,
        lines: [
            line('peak', (row) => ratio(peak(row), limit(row)), format.percent),
            line('now', (row) => ratio(latest(row), limit(row)), format.percent),
        ],
        facts: [fact('busy now', busyCores)],
    };
}

function cores(past) {
    const names = past.names('core');
    const busy = names.map((name) => past.figure('core', name, 'percent'));
    const busiest = (row) => names.reduce((best, name, core) => {
        const value = busy[core](row);
        return value !== null && (best === null || value > best.value) ? {name, value} : best;
    }, null);
    const nameOfBusiest = (row) => format.visible(busiest(row)?.name ?? format.ABSENT);
    return {
        id: 'cores', kind: 'Cores', name: '', detail: `${names.length}`, families: ['cpu'],
        axis: format.count, top: names.length, cores: {names, busy},
        lines: [line('busiest', (row) => busiest(row)?.value ?? null, format.percent)],
        facts: [fact('busiest core', nameOfBusiest)],
    };
}

function memory(past) {
    const at = (figure) => past.figure('memory', '', figure);
    const [used, total] = ['used_mib', 'total_mib'].map(at);
    return {
        id: 'memory', kind: 'Memory', name: '', detail: '', families: ['memory'], ...PERCENT_AXIS,
        lines: [line('used', (row) => ratio(used(row), total(row)), format.percent)],
        facts: [fact('used', (row) => partOf(mebibytes(used(row)), mebibytes(total(row))))],
    };
}

/** @param receive, transmit bytes per second, functions of a row */
function traffic(id, name, detail, receive, transmit, facts) {
    return {
        id, kind: 'Network', name, detail, families: ['network'],
        axis: format.round(format.bitRate), top: null, least: 8000,
        lines: [
            line('receive', (row) => bits(receive(row)), format.bitRate),
            line('transmit', (row) => bits(transmit(row)), format.bitRate),
        ],
        facts,
    };
}

function busiestInterface(past, report) {
    const peak = (direction) => past.figure(direction, '', 'peak_bytes_per_second');
    const holder = (direction) =>
        format.visible(report?.network[direction].interface ?? format.ABSENT);
    return traffic('busiest', 'busiest interface', 'peak', peak('receive'), peak('transmit'), [
        factOfNow('receive by', holder('receive')),
        factOfNow('transmit by', holder('transmit')),
    ]);
}

function networkInterface(past, report, name) {
    const [receive, transmit] = ['receive_bytes_per_second', 'transmit_bytes_per_second']
        .map((figure) => past.figure('interface', name, figure));
    const now = report?.network.interfaces.find((row) => row.name === name);
    return traffic(`interface ${name}`, name, '', receive, transmit, [
        factOfNow('packets/s in', format.count(now?.receive_packets_per_second)),
        factOfNow('out', format.count(now?.transmit_packets_per_second)),
    ]);
}

function directory(past, report, name) {
    const at = (figure) => past.figure('directory', name, figure);
    const [busy, operations, used, available, total] = ['busy_percent', 'operations_per_second',
        'used_bytes', 'available_bytes', 'total_bytes'].map(at);
    const now = report?.directories.find((row) => row.directory === name);
    return {
        id: `directory ${name}`, kind: 'Directory', name, detail: now?.disk ?? '',
        families: [`disk_io:${name}`, `disk_space:${name}`], ...PERCENT_AXIS,
        lines: [
            line('busy', busy, format.percent),
            // As df counts it: of what an ordinary user could have.
            line('space used', (row) => ratio(used(row), used(row) + available(row)),
                format.percent),
        ],
        facts: [
            fact('operations/s', (row) => format.count(operations(row))),
            fact('available', (row) => partOf(available(row), total(row))),
        ],
    };
}

function processPanels(past, report, name) {
    const at = (figure) => past.figure('process', name, figure);
    const resident = at('resident_mib');
    const now = report?.processes.find((row) => row.process === name);
    const pid = now?.pid && String(now.pid) !== name ? now.pid : '';
    const detail = now && !now.running ? 'not running' : `${now?.command ?? ''} ${pid}`.trim();
    return [{
        id: `process ${name}`, kind: 'Process CPU', name, detail,
        families: [`process_cpu:${name}`], axis: format.percent, top: null, least: 100,
        lines: [
            line('CPU peak', at('cpu_peak_percent'), format.percent),
            line('busiest thread', at('busiest_thread_peak_percent'), format.percent),
        ],
        facts: [fact('', () => '100 % is one core')],
    }, {
        id: `process memory ${name}`, kind: 'Process memory', name, detail,
        families: [`process_memory:${name}`],
        axis: format.round(format.bytes), top: null, least: 1024 * 1024, binary: true,
        lines: [line('resident', (row) => mebibytes(resident(row)), format.bytes)],
        facts: [factOfNow('virtual', format.bytes(mebibytes(now?.virtual_mib ?? null)))],
    }];
}

/** Panels in the order of the page. Without a report they tell of the past alone. */
export function panelsOf(past, report) {
    if (past.last < 0) return [];
    const interfaces = past.names('interface');
    // The peak says more than a single interface that each report measured once.
    const peakTells = interfaces.length !== 1 || past.interval > 1000;
    return [
        cpu(past),
        ...(past.names('core').length > 0 ? [cores(past)] : []),
        memory(past),
        ...(peakTells ? [busiestInterface(past, report)] : []),
        ...interfaces.map((name) => networkInterface(past, report, name)),
        ...past.names('directory').map((name) => directory(past, report, name)),
        ...past.names('process').flatMap((name) => processPanels(past, report, name)),
    ];
}

// What the page shows: one panel for each thing that is measured, as plain data.
//
// panel: {id, kind, name, detail, families, lines, facts, axis, top, least, cores}
//   lines   {label, at(row), format}: drawn, the first one solid, the second one dashed
//   facts   {label, text(row), now}: told beside the plot; `now`: the past does not know it
//   axis    format of the axis; top: its fixed end, or null; least: the least that it spans;
//           binary: whether round numbers are powers of two
//   cores   only for the cores: {names, busy: at(row) of each}, drawn instead of lines
import * as format from './format.js';

const ratio = (part, whole) => (part === null || !whole ? null : 100 * part / whole);
const bits = (value) => (value === null ? null : 8 * value);
const mebibytes = (value) => (value === null ? null : 1024 * 1024 * value);
const joined = (figures) => figures.filter((figure) => figure !== null).join(' ');

function cpu(past) {
    const [limit, peak, latest] =
        ['limit_percent', 'peak_percent', 'latest_percent'].map((figure) => past.figure('cpu', '', figure));
    const busyCores = (row) =>
        (latest(row) === null ? format.ABSENT : `${(latest(row) / 100).toFixed(1)} of ${limit(row) / 100} cores`);
    return {
        id: 'cpu', kind: 'CPU', name: '', detail: '', families: ['cpu'], axis: format.percent, top: 100,
        lines: [{label: 'peak', at: (row) => ratio(peak(row), limit(row)), format: format.percent},
                {label: 'now', at: (row) => ratio(latest(row), limit(row)), format: format.percent}],
        facts: [{label: 'busy now', text: busyCores}],
    };
}

function cores(past) {
    const names = past.names('core');
    const busy = names.map((name) => past.figure('core', name, 'percent'));
    const busiest = (row) => names.reduce((best, name, core) => {
        const value = busy[core](row);
        return value !== null && (best === null || value > best.value) ? {name, value} : best;
    }, null);
    return {
        id: 'cores', kind: 'Cores', name: '', detail: `${names.length}`, families: ['cpu'],
        axis: format.count, top: names.length, cores: {names, busy},
        lines: [{label: 'busiest', at: (row) => busiest(row)?.value ?? null, format: format.percent}],
        facts: [{label: 'busiest core', text: (row) => format.visible(busiest(row)?.name ?? format.ABSENT)}],
    };
}

function memory(past) {
    const [used, total] = ['used_mib', 'total_mib'].map((figure) => past.figure('memory', '', figure));
    const text = (row) => `${format.bytes(mebibytes(used(row)))} of ${format.bytes(mebibytes(total(row)))}`;
    return {
        id: 'memory', kind: 'Memory', name: '', detail: '', families: ['memory'], axis: format.percent, top: 100,
        lines: [{label: 'used', at: (row) => ratio(used(row), total(row)), format: format.percent}],
        facts: [{label: 'used', text}],
    };
}

/** @param receive, transmit bytes per second, functions of a row */
function traffic(id, name, detail, receive, transmit, facts) {
    return {
        id, kind: 'Network', name, detail, families: ['network'], axis: format.round(format.bitRate), top: null, least: 8000,
        lines: [{label: 'receive', at: (row) => bits(receive(row)), format: format.bitRate},
                {label: 'transmit', at: (row) => bits(transmit(row)), format: format.bitRate}],
        facts,
    };
}

function busiestInterface(past, report) {
    const peak = (kind) => past.figure(kind, '', 'peak_bytes_per_second');
    const holder = (direction) => () => format.visible(report?.network[direction].interface ?? format.ABSENT);
    return traffic('busiest', 'busiest interface', 'peak', peak('receive'), peak('transmit'),
        [{label: 'receive by', text: holder('receive'), now: true},
         {label: 'transmit by', text: holder('transmit'), now: true}]);
}

function networkInterface(past, report, name) {
    const at = (figure) => past.figure('interface', name, figure);
    const now = report?.network.interfaces.find((row) => row.name === name);
    const packets = (figure) => () => format.count(now?.[figure]);
    return traffic(`interface ${name}`, name, '', at('receive_bytes_per_second'), at('transmit_bytes_per_second'),
        [{label: 'packets/s in', text: packets('receive_packets_per_second'), now: true},
         {label: 'out', text: packets('transmit_packets_per_second'), now: true}]);
}

function directory(past, report, name) {
    const at = (figure) => past.figure('directory', name, figure);
    const [operations, used, available, total] =
        ['operations_per_second', 'used_bytes', 'available_bytes', 'total_bytes'].map(at);
    const full = (row) => ratio(used(row), used(row) + available(row));
    const now = report?.directories.find((row) => row.directory === name);
    return {
        id: `directory ${name}`, kind: 'Directory', name, detail: now?.disk ?? '',
        families: [`disk_io:${name}`, `disk_space:${name}`], axis: format.percent, top: 100,
        lines: [{label: 'busy', at: at('busy_percent'), format: format.percent},
                {label: 'space used', at: full, format: format.percent}],
        facts: [{label: 'operations/s', text: (row) => format.count(operations(row))},
                {label: 'available', text: (row) => `${format.bytes(available(row))} of ${format.bytes(total(row))}`}],
    };
}

function processPanels(past, report, name) {
    const at = (figure) => past.figure('process', name, figure);
    const resident = at('resident_mib');
    const now = report?.processes.find((row) => row.process === name);
    const pid = now?.pid && String(now.pid) !== name ? String(now.pid) : null;
    const detail = !now || now.running ? joined([now?.command ?? null, pid]) : 'not running';
    return [{
        id: `process ${name}`, kind: 'Process CPU', name, detail, families: [`process_cpu:${name}`],
        axis: format.percent, top: null, least: 100,
        lines: [{label: 'CPU peak', at: at('cpu_peak_percent'), format: format.percent},
                {label: 'busiest thread', at: at('busiest_thread_peak_percent'), format: format.percent}],
        facts: [{label: '', text: () => '100 % is one core'}],
    }, {
        id: `process memory ${name}`, kind: 'Process memory', name, detail, families: [`process_memory:${name}`],
        axis: format.round(format.bytes), top: null, least: 1024 * 1024, binary: true,
        lines: [{label: 'resident', at: (row) => mebibytes(resident(row)), format: format.bytes}],
        facts: [{label: 'virtual', text: () => format.bytes(mebibytes(now?.virtual_mib ?? null)), now: true}],
    }];
}

/** Panels in the order of the page. Without a report they tell of the past alone. */
export function panelsOf(past, report) {
    if (past.last < 0) return [];
    const interfaces = past.names('interface');
    return [
        cpu(past),
        ...(past.names('core').length > 0 ? [cores(past)] : []),
        memory(past),
        ...(interfaces.length !== 1 || past.interval > 1000 ? [busiestInterface(past, report)] : []),
        ...interfaces.map((name) => networkInterface(past, report, name)),
        ...past.names('directory').map((name) => directory(past, report, name)),
        ...past.names('process').flatMap((name) => processPanels(past, report, name)),
    ];
}

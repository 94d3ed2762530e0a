// What the page shows: one panel for each thing that is measured, as plain data.
//
// panel: {id, kind, name, detail, families, lines, facts, axis, top, least, cores}
//   lines   {label, at(row), format}: drawn, the first one solid, the second one dashed
//   facts   {label, text(row), now}: told beside the plot; `now`: the past does not know it
//   axis    format of the axis; top: its fixed end, or null; least: the least that it spans;
//           binary: whether round numbers are powers of two
//   cores   only for the cores: {names, at(core, row)}, drawn instead of lines
import * as format from './format.js';

const ratio = (part, whole) => (part === null || !whole ? null : 100 * part / whole);
const bits = (value) => (value === null ? null : 8 * value);
const mebibytes = (value) => (value === null ? null : 1024 * 1024 * value);
const joined = (figures) => figures.filter((figure) => figure !== null).join(' ');

function cpu(past) {
    const at = (figure) => (row) => past.at('cpu', '', figure, row);
    const share = (figure) => (row) => ratio(at(figure)(row), at('limit_percent')(row));
    const busyCores = (row) => {
        const latest = at('latest_percent')(row);
        const limit = at('limit_percent')(row);
        return latest === null ? format.ABSENT : `${(latest / 100).toFixed(1)} of ${limit / 100} cores`;
    };
    return {
        id: 'cpu', kind: 'CPU', name: '', detail: '', families: ['cpu'], axis: format.percent, top: 100,
        lines: [{label: 'peak', at: share('peak_percent'), format: format.percent},
                {label: 'now', at: share('latest_percent'), format: format.percent}],
        facts: [{label: 'busy now', text: busyCores}],
    };
}

function cores(past) {
    const names = past.names('core');
    const at = (core, row) => past.at('core', core, 'percent', row);
    const busiest = (row) => names.reduce((best, name) => {
        const value = at(name, row);
        return value !== null && (best === null || value > best.value) ? {name, value} : best;
    }, null);
    return {
        id: 'cores', kind: 'Cores', name: '', detail: `${names.length}`, families: ['cpu'],
        axis: format.count, top: names.length, cores: {names, at},
        lines: [{label: 'busiest', at: (row) => busiest(row)?.value ?? null, format: format.percent}],
        facts: [{label: 'busiest core', text: (row) => format.visible(busiest(row)?.name ?? format.ABSENT)}],
    };
}

function memory(past) {
    const at = (figure) => (row) => mebibytes(past.at('memory', '', figure, row));
    return {
        id: 'memory', kind: 'Memory', name: '', detail: '', families: ['memory'], axis: format.percent, top: 100,
        lines: [{label: 'used', at: (row) => ratio(at('used_mib')(row), at('total_mib')(row)), format: format.percent}],
        facts: [{label: 'used', text: (row) => `${format.bytes(at('used_mib')(row))} of ${format.bytes(at('total_mib')(row))}`}],
    };
}

function traffic(id, name, detail, receive, transmit, facts) {
    return {
        id, kind: 'Network', name, detail, families: ['network'], axis: format.round(format.bitRate), top: null, least: 8000,
        lines: [{label: 'receive', at: receive, format: format.bitRate},
                {label: 'transmit', at: transmit, format: format.bitRate}],
        facts,
    };
}

function busiestInterface(past, report) {
    const peak = (kind) => (row) => bits(past.at(kind, '', 'peak_bytes_per_second', row));
    const holder = (direction) => () => format.visible(report?.network[direction].interface ?? format.ABSENT);
    return traffic('busiest', 'busiest interface', 'peak', peak('receive'), peak('transmit'),
        [{label: 'receive by', text: holder('receive'), now: true},
         {label: 'transmit by', text: holder('transmit'), now: true}]);
}

function networkInterface(past, report, name) {
    const at = (figure) => (row) => bits(past.at('interface', name, figure, row));
    const now = report?.network.interfaces.find((row) => row.name === name);
    const packets = (figure) => () => format.count(now?.[figure]);
    return traffic(`interface ${name}`, name, '', at('receive_bytes_per_second'), at('transmit_bytes_per_second'),
        [{label: 'packets/s in', text: packets('receive_packets_per_second'), now: true},
         {label: 'out', text: packets('transmit_packets_per_second'), now: true}]);
}

function directory(past, report, name) {
    const at = (figure) => (row) => past.at('directory', name, figure, row);
    const full = (row) => {
        const used = at('used_bytes')(row);
        return used === null ? null : ratio(used, used + at('available_bytes')(row));
    };
    const now = report?.directories.find((row) => row.directory === name);
    return {
        id: `directory ${name}`, kind: 'Directory', name, detail: now?.disk ?? '',
        families: [`disk_io:${name}`, `disk_space:${name}`], axis: format.percent, top: 100,
        lines: [{label: 'busy', at: at('busy_percent'), format: format.percent},
                {label: 'space used', at: full, format: format.percent}],
        facts: [{label: 'operations/s', text: (row) => format.count(at('operations_per_second')(row))},
                {label: 'available', text: (row) => `${format.bytes(at('available_bytes')(row))} of ${format.bytes(at('total_bytes')(row))}`}],
    };
}

function processPanels(past, report, name) {
    const at = (figure) => (row) => past.at('process', name, figure, row);
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
        lines: [{label: 'resident', at: (row) => mebibytes(at('resident_mib')(row)), format: format.bytes}],
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

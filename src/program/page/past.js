// The past as columns: one time a report, and for each figure one value or null at each time.

const FIGURES = {
    cpu: ['limit_percent', 'peak_percent', 'latest_percent'],
    core: ['percent'],
    memory: ['used_mib', 'total_mib'],
    receive: ['peak_bytes_per_second'],
    transmit: ['peak_bytes_per_second'],
    interface: ['receive_bytes_per_second', 'transmit_bytes_per_second'],
    directory: ['busy_percent', 'operations_per_second', 'used_bytes', 'available_bytes',
        'total_bytes'],
    process: ['cpu_peak_percent', 'busiest_thread_peak_percent', 'resident_mib'],
};
const HOUR = 3600 * 1000;
const KEPT_ROWS = 60;
const TRIMMED_ROWS = 60;  // so many at once: trimming moves every column
const GAP_INTERVALS = 2.5;

/** What a report or a history speaks of; they differ in having a value or a column a figure. */
function* thingsOf(source) {
    yield ['cpu', '', source.cpu];
    yield ['memory', '', source.memory];
    yield ['receive', '', source.network.receive];
    yield ['transmit', '', source.network.transmit];
    for (const core of source.cpu.cores) yield ['core', core.name, core];
    for (const row of source.network.interfaces) yield ['interface', row.name, row];
    for (const row of source.directories) yield ['directory', row.directory, row];
    for (const row of source.processes) yield ['process', row.process, row];
}

export class Past {
    times = [];      // milliseconds since 1970, rising
    interval = 1000; // between two reports
    #columns = new Map();
    #names = new Map(Object.keys(FIGURES).map((kind) => [kind, new Set()]));

    /** Between two reports; when it is longer, one is missing. */
    get longestInterval() { return GAP_INTERVALS * this.interval; }

    get last() { return this.times.length - 1; }

    /** Everything of a kind that the past knows, in the order of its appearance. */
    names(kind) { return [...this.#names.get(kind)]; }

    /** A function from a row to the value there; null where it was not measured. */
    figure(kind, name, figure) {
        const column = this.#columns.get(`${kind}/${figure}/${name}`) ?? [];
        return (row) => column[row] ?? null;
    }

    addReport(report) {
        this.interval = report.interval_seconds * 1000;
        this.#add([Date.parse(report.time)], report, (figures, figure) => figures[figure]);
    }

    addHistory(history) {
        this.interval = (history.interval_seconds ?? 1) * 1000;
        this.#add(history.time.map((time) => time * 1000), history,
            (figures, figure, i) => figures[figure][i - figures.first]);
    }

    /** Adds the rows that are new; times that miss a report get a row of nulls in between. */
    #add(times, source, pick) {
        const rows = [];
        times.forEach((time, i) => {
            const before = this.times.at(-1);
            if (before !== undefined && time <= before) return;
            if (time - before > this.longestInterval) {
                this.times.push(before + this.interval);
                rows.push(-1);
            }
            this.times.push(time);
            rows.push(i);
        });
        const length = this.times.length;
        for (const [kind, name, figures] of thingsOf(source)) {
            this.#names.get(kind).add(name);
            for (const figure of FIGURES[kind]) {
                const column = this.#column(`${kind}/${figure}/${name}`, length - rows.length);
                for (const i of rows) column.push(i < 0 ? null : pick(figures, figure, i) ?? null);
            }
        }
        for (const column of this.#columns.values()) {
            while (column.length < length) column.push(null);
        }
        this.#trim();
    }

    #column(key, length) {
        if (!this.#columns.has(key)) this.#columns.set(key, Array(length).fill(null));
        return this.#columns.get(key);
    }

    #trim() {
        const oldest = this.times.at(-1) - HOUR;
        const old = this.times.findIndex((time) => time >= oldest);
        const excess = Math.min(old, this.times.length - KEPT_ROWS);
        if (excess < TRIMMED_ROWS) return;
        this.times.splice(0, excess);
        for (const column of this.#columns.values()) column.splice(0, excess);
        for (const [kind, names] of this.#names) {
            for (const name of names) this.#forgetIfEmpty(kind, name);
        }
    }

    #forgetIfEmpty(kind, name) {
        const keys = FIGURES[kind].map((figure) => `${kind}/${figure}/${name}`);
        if (keys.some((key) => this.#columns.get(key).some((value) => value !== null))) return;
        for (const key of keys) this.#columns.delete(key);
        this.#names.get(kind).delete(name);
    }
}

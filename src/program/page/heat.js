// How busy each core was: a row a core, a cell a moment, the busier the stronger.

const MAX_CELLS_ACROSS = 400;

/** The busiest percentage of each core in each of `across` equal parts of the span; -1: none. */
function cellsOf({busy}, past, [from, to], across) {
    const cells = busy.map(() => new Float32Array(across).fill(-1));
    const place = (time) => Math.floor((time - from) / (to - from) * across);
    past.times.forEach((time, row) => {
        if (time < from || time - past.interval > to) return;
        // A report tells of the time since the one before it.
        const before = past.times[row - 1] ?? 0;
        const begin = time - before > past.longestInterval ? time - past.interval : before;
        const first = Math.max(place(begin) + 1, 0);
        const last = Math.min(place(time), across - 1);
        busy.forEach((at, core) => {
            const value = at(row) ?? -1;
            for (let cell = Math.min(first, last); cell <= last; ++cell) {
                cells[core][cell] = Math.max(cells[core][cell], value);
            }
        });
    });
    return cells;
}

export function drawHeat(context, area, span, cores, past, colours) {
    const across = Math.min(MAX_CELLS_ACROSS, Math.max(1, Math.floor(area.w)));
    const [red, green, blue] = colours.heat;
    const image = new ImageData(across, cores.names.length);
    cellsOf(cores, past, span, across).forEach((row, core) => row.forEach((value, cell) => {
        const alpha = value < 0 ? 0 : 18 + 237 * Math.min(value, 100) / 100;
        image.data.set([red, green, blue, alpha], 4 * (core * across + cell));
    }));
    const canvas = new OffscreenCanvas(image.width, image.height);
    canvas.getContext('2d').putImageData(image, 0, 0);
    context.imageSmoothingEnabled = false;
    context.drawImage(canvas, area.x, area.y, area.w, area.h);
}

// A panel's past, drawn by dygraphs, which index.html loads. Names never reach it: what it writes
// into the page are times and numbers.
import {drawHeat} from './heat.js';

const {Dygraph} = window;
Dygraph.PLUGINS = [Dygraph.Plugins.Grid, Dygraph.Plugins.Axes];
const DASHES = [null, [7, 4]];
const {mousedown, dblclick} = Dygraph.defaultInteractionModel;  // fingers scroll the page

function rowsOf(panel, past, first) {
    const rows = [];
    for (let row = first; row < past.times.length; ++row) {
        const values = panel.cores ? [0] : panel.lines.map((line) => line.at(row));
        rows.push([past.times[row], ...values]);
    }
    return rows;
}

/** Core numbers in the middle of their rows, as many as there is room for. Names stay out. */
function coreTicks(panel, em) {
    return (top, bottom, pixels) => {
        const step = Math.max(1, Math.ceil(1.6 * em * panel.top / pixels));
        return Array.from({length: Math.ceil(panel.top / step)},
            (unused, index) => ({v: index * step + 0.5, label: String(index * step)}));
    };
}

/** The axis from 0 up to what is shown, with some air, or to its fixed end; cores from the top. */
function rangeOf(panel, rows, [from, to]) {
    if (panel.cores) return [panel.top, 0];
    if (panel.top !== null) return [0, panel.top * 1.04];
    let highest = panel.least;
    for (const [time, ...values] of rows) {
        if (time >= from && time <= to) highest = Math.max(highest, ...values);
    }
    return [0, highest * 1.1];
}

export class Plot {
    #dygraph = null; #box; #handlers; #panel; #past; #colours; #first = 0; #look = '';

    constructor(box, panel, handlers) {
        this.#box = box;
        this.#panel = panel;
        this.#handlers = handlers;
    }

    draw(panel, past, span, colours) {
        this.#panel = panel;
        this.#past = past;
        this.#colours = colours;
        // One row from before the span, so that lines come in from the edge.
        this.#first = Math.max(0, past.times.findIndex((time) => time >= span[0]) - 1);
        const rows = rowsOf(panel, past, this.#first);
        const em = parseFloat(getComputedStyle(this.#box).fontSize);
        const look = JSON.stringify([em, colours]);
        const changing = {
            file: rows, dateWindow: span, valueRange: rangeOf(panel, rows, span),
            colors: panel.cores ? ['transparent'] : colours.lines,
            gridLineColor: colours.grid, axisLineColor: colours.grid, ...this.#sizes(em),
        };
        if (this.#look !== look) this.remove();
        this.#look = look;
        if (this.#dygraph === null) {
            const {file, ...options} = changing;
            this.#dygraph = new Dygraph(this.#box, file, {...this.#options(), ...options});
        } else {
            this.#dygraph.updateOptions(changing);
        }
    }

    #sizes(em) {
        return {
            axisLabelFontSize: em,
            axes: {
                x: {ticker: Dygraph.dateTicker, axisLabelFormatter: Dygraph.dateAxisLabelFormatter,
                    drawGrid: false, pixelsPerLabel: 5 * em},
                y: {axisLabelFormatter: (value) => this.#panel.axis(value),
                    axisLabelWidth: 5.6 * em, labelsKMG2: this.#panel.binary,
                    pixelsPerLabel: Math.max(2 * em, this.#box.clientHeight / 5),
                    ...(this.#panel.cores && {
                        ticker: coreTicks(this.#panel, em), drawGrid: false,
                    })},
            },
        };
    }

    #options() {
        const {cores, lines} = this.#panel;
        const series = Object.fromEntries(lines.map((line, index) =>
            [String(index), {strokePattern: DASHES[index], fillGraph: index === 0 && !cores}]));
        return {
            labels: ['time', ...Object.keys(series)], series, strokeWidth: 1.6, fillAlpha: 0.14,
            rightGap: 2, resizable: 'passive', legend: 'never',
            highlightCircleSize: 3, interactionModel: {mousedown, dblclick},
            highlightCallback: (event, x, points, row) => this.#handlers.hover(this.#first + row),
            unhighlightCallback: () => this.#handlers.hover(null),
            drawHighlightPointCallback: (graph, name, context, x, y, colour) =>
                this.#mark(graph, context, x, y, colour),
            zoomCallback: (from, to) => this.#handlers.zoom(from, to),
            underlayCallback: (context, area, graph) => {
                if (!cores) return;
                drawHeat(context, area, graph.xAxisRange(), this.#panel.cores, this.#past,
                    this.#colours);
            },
        };
    }

    /** The moment that is pointed at, as an upright line through every plot. */
    #mark(graph, context, x, y, colour) {
        const area = graph.getArea();
        context.strokeStyle = this.#colours.mark;
        context.beginPath();
        context.moveTo(x, area.y);
        context.lineTo(x, area.y + area.h);
        context.stroke();
        context.fillStyle = colour;
        context.beginPath();
        context.arc(x, y, 3, 0, 2 * Math.PI);
        context.fill();
    }

    /** Marks a row of the past; null: none. */
    select(row) {
        if (this.#dygraph === null) return;
        if (row === null) this.#dygraph.clearSelection();
        else this.#dygraph.setSelection(row - this.#first);
    }

    remove() {
        this.#dygraph?.destroy();
        this.#dygraph = null;
    }
}

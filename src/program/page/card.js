// One panel on the screen: its name, its figures at a moment, and its plot.
import {Plot} from './plot.js';
import {visible} from './format.js';

export function element(tag, className, text = '') {
    const made = document.createElement(tag);
    made.className = className;
    made.textContent = text;
    return made;
}

/** A stroke as it is drawn in the plot, so that lines can be told apart without colour. */
function swatch(index) {
    const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
    svg.setAttribute('viewBox', '0 0 28 6');
    svg.setAttribute('class', `swatch line${index}`);
    svg.setAttribute('aria-hidden', 'true');
    const line = document.createElementNS(svg.namespaceURI, 'path');
    line.setAttribute('d', 'M0 3h28');
    svg.append(line);
    return svg;
}

export class Card {
    /** @param handlers of the plot: hover(row or null), zoom(from, to) */
    constructor(panel, handlers) {
        this.root = element('section', 'card');
        this.root.dataset.panel = panel.id;
        this.#head(panel);
        this.#figures = panel.lines.map((line, index) => this.#figure(panel, line.label, index));
        this.#facts = this.root.appendChild(element('p', 'facts'));
        this.#reason = this.root.appendChild(element('p', 'reason'));
        if (panel.cores) this.#bars = this.root.appendChild(element('div', 'bars'));
        // The inner box has no say in the size: the plot fills what is left and shrinks again.
        const outer = this.root.appendChild(element('div', 'plot'));
        this.#plotBox = outer.appendChild(element('div', ''));
        this.#handlers = handlers;
    }

    #detail; #values; #figures; #facts; #reason; #bars = null; #plotBox; #plot = null; #handlers;

    #head(panel) {
        const head = this.root.appendChild(element('h2', ''));
        head.append(element('span', 'kind', panel.kind));
        if (panel.name !== '') {
            const name = head.appendChild(element('bdi', 'name', visible(panel.name)));
            name.title = visible(panel.name);
        }
        this.#detail = head.appendChild(element('bdi', 'detail'));
        this.#values = this.root.appendChild(element('dl', 'values'));
    }

    #figure(panel, label, index) {
        const box = this.#values.appendChild(element('div', `line${index}`));
        const term = box.appendChild(element('dt', '', label));
        if (!panel.cores) term.prepend(swatch(index));
        return box.appendChild(element('dd', ''));
    }

    /** Shows the figures at a row. @param reasons why some are not there, or null for the past */
    tell(panel, row, reasons) {
        this.#detail.textContent = visible(panel.detail);
        panel.lines.forEach((line, index) => {
            const [number, unit = ''] = line.format(line.at(row)).split(' ');
            this.#figures[index].replaceChildren(number, element('span', 'unit', ` ${unit}`));
        });
        const facts = panel.facts.filter(({now}) => !now || reasons !== null);
        this.#facts.replaceChildren(...facts.flatMap(({label, text}) =>
            [`${label} `, element('bdi', '', text(row)), ' ']));
        this.#reason.textContent = panel.families
            .filter((family) => Object.hasOwn(reasons ?? {}, family))
            .map((family) => visible(reasons[family])).join('; ');
        if (this.#bars !== null) this.#drawBars(panel.cores, row);
    }

    #drawBars({names, busy}, row) {
        while (this.#bars.childElementCount < names.length) this.#bars.append(element('div', ''));
        while (this.#bars.childElementCount > names.length) this.#bars.lastChild.remove();
        this.#bars.classList.toggle('crowded', names.length > 16);
        names.forEach((name, index) => {
            const value = busy[index](row);
            const bar = this.#bars.children[index];
            bar.style.setProperty('--busy', value ?? 0);
            bar.textContent = value ?? '–';
            bar.title = `${visible(name)}: ${value ?? '–'} %`;
        });
    }

    /** Draws the past between two times; `colours` as of Plot. */
    draw(panel, past, span, colours) {
        this.#plot ??= new Plot(this.#plotBox, panel, this.#handlers);
        this.#plot.draw(panel, past, span, colours);
    }

    select(row) { this.#plot?.select(row); }

    remove() {
        this.#plot?.remove();
        this.root.remove();
    }
}

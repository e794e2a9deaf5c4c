// Curves below the lanes, on the same axis, drawn by dygraphs. It draws lines and a grid alone: names, numbers and
// legend are elements of this page, so that nothing is markup and no style stands in an attribute.

import {el, fill} from './dom.js';
import {curvesOf, roundUp} from './measureSeries.js';
import {colour, isDark, onTheme} from './theme.js';
import {isUtc, now, toMs} from './times.js';
import {count} from './words.js';

const source = '/page/dygraph.min.js';
const height = 84;

// Told apart by the colour-blind, and by their dashes in any case.
const colours = {
    light: ['#0072b2', '#c24e00', '#007a5a', '#a34a86', '#6b6000', '#333333'],
    dark: ['#56b4e9', '#f0a03c', '#3fd6a8', '#e29ac7', '#f0e442', '#dddddd'],
};
const dashes = [null, [6, 3], [2, 2], [9, 3, 2, 3], [12, 4], [4, 4]];

let loading = null;

/** dygraphs, or null where its package is not installed. */
function loadDygraph() {
    loading ??= new Promise((resolve) => {
        const settle = () => {
            const Dygraph = window.Dygraph ?? null;
            if (Dygraph) {
                Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin === Dygraph.Plugins.Grid);
            }
            resolve(Dygraph);
        };
        document.head.append(el('script', {src: source, onload: settle, onerror: settle}));
    });
    return loading;
}

const numberText = (value) =>
    (value >= 100 || Number.isInteger(value) ? Math.round(value) : Number(value.toPrecision(2))).toLocaleString('en');

export class Curves {
    constructor() {
        this.element = el('section', {class: 'curves', 'aria-label': 'Curves', 'data-curves': ''});
        this.graphs = [];
        this.curves = null;
        this.endTheme = onTheme(() => this.draw());
        this.observer = new ResizeObserver(() => this.graphs.forEach((graph) => graph.resize()));
        this.observer.observe(this.element);
    }

    end() {
        this.endTheme();
        this.observer.disconnect();
        this.destroy();
    }

    /** Lines where the axis of the lanes has them. */
    ticks() { return this.scale.ticks(isUtc()).map((tick) => ({v: tick.time, label: tick.label})); }

    destroy() {
        this.graphs.forEach((graph) => graph.destroy());
        this.graphs = [];
    }

    async show(answer, by, scale) {
        this.dygraph = await loadDygraph();
        this.scale = scale;
        this.times = {since: toMs(answer.since), bin: answer.bin_seconds * 1000};
        this.curves = curvesOf(answer, by, now());
        this.keys = [...new Set(this.curves.flatMap((curve) => curve.series.map((series) => series.key)))].sort();
        this.draw();
    }

    setScale(scale) {
        this.scale = scale;
        this.graphs.forEach((graph) => graph.updateOptions({dateWindow: [scale.since, scale.until]}));
    }

    draw() {
        this.destroy();
        if (!this.curves) {
            return;
        }
        if (!this.dygraph) {
            fill(
                this.element,
                el('p', {class: 'note small'}, 'Curves are not drawn: dygraphs is not installed beside vrx-web.'));
            return;
        }
        if (this.curves.length === 0) {
            fill(this.element, el('p', {class: 'note small'}, 'Nothing was measured in this time.'));
            return;
        }
        const plots = this.curves.map((curve) => el('div', {
                                          class: 'curve-plot',
                                          role: 'img',
                                          'aria-label': `${curve.title}, up to ${numberText(curve.most)} ${curve.unit}`
                                      }));
        fill(this.element, this.curves.map((curve, at) => this.frameOf(curve, plots[at])));
        this.graphs = this.curves.map((curve, at) => this.graphOf(curve, plots[at]));
    }

    /** Each port has one colour and one dash in all curves. */
    styleOf(series) {
        const at = this.keys.indexOf(series.key) % dashes.length;
        return {colour: colours[isDark() ? 'dark' : 'light'][at], dash: dashes[at]};
    }

    frameOf(curve, plot) {
        const legend = curve.series.map((series) => {
            const {colour: line, dash} = this.styleOf(series);
            const swatch = el('span', {class: 'swatch', 'aria-hidden': 'true'});
            swatch.style.borderTopColor = line;
            swatch.style.borderTopStyle = dash ? (dash[0] <= 2 ? 'dotted' : 'dashed') : 'solid';
            return el('li', {}, swatch, series.label);
        });
        const most = roundUp(curve.most);
        return el(
            'figure', {class: 'curve', 'data-curve': curve.name},
            el('div', {class: 'curve-side'}, el('span', {class: 'curve-most'}, `${numberText(most)} ${curve.unit}`),
               el('span', {class: 'curve-title'}, curve.title), el('span', {class: 'curve-zero'}, '0')),
            plot,
            el('figcaption', {},
               el('ul', {class: 'curve-legend'}, legend,
                  curve.left > 0 && el('li', {class: 'note'}, `and ${count(curve.left, 'port')} with less`))));
    }

    graphOf(curve, plot) {
        const {since, bin} = this.times;
        const rows = curve.series[0].values.map(
            (_, at) => [since + (at + 0.5) * bin, ...curve.series.map((series) => series.values[at])]);
        const names = curve.series.map((_, at) => `series ${at + 1}`);
        const line = colour('--line');
        const styles = curve.series.map((series) => this.styleOf(series));
        return new this.dygraph(plot, rows, {
            labels: ['time', ...names],
            series: Object.fromEntries(
                names.map((name, at) => [name, {strokePattern: styles[at].dash, color: styles[at].colour}])),
            dateWindow: [this.scale.since, this.scale.until],
            valueRange: [0, roundUp(curve.most) * 1.02],
            height,
            strokeWidth: 1.5,
            legend: 'never',
            showLabelsOnHighlight: false,
            highlightCircleSize: 0,
            rightGap: 0,
            xRangePad: 0,
            axes: {
                x: {drawAxis: false, drawGrid: true, gridLineColor: line, ticker: () => this.ticks()},
                y: {drawAxis: false, drawGrid: true, gridLineColor: line, axisLabelWidth: 0}
            },
            interactionModel: {},
            axisLineColor: line,
        });
    }
}

// A canvas that notes what is drawn on it: tests look at rectangles, lines and texts, not at pictures.

const noted =
    ['fillRect', 'strokeRect', 'moveTo', 'lineTo', 'fillText', 'stroke', 'fill', 'rect', 'clip', 'save', 'restore'];

export function recordingCanvas() {
    const calls = [];
    const canvas = {calls, beginPath() {}, closePath() {}, setLineDash(dash) { canvas.dash = dash; }};
    for (const name of noted) {
        canvas[name] = (...values) => calls.push({
            name,
            values,
            fill: canvas.fillStyle,
            stroke: canvas.strokeStyle,
            alpha: canvas.globalAlpha,
            dash: canvas.dash
        });
    }
    canvas.of = (name, fill) => calls.filter((call) => call.name === name && (fill === undefined || call.fill === fill))
                                    .map((call) => call.values);
    return canvas;
}

import QtQuick
import Kelvo.Model

// The live low/mid/high trace. Repaints only when the model publishes a new trace, and the scene
// graph folds repaints into display frames.
Canvas {
    id: canvas
    property var trace: Bridge.micTrace
    readonly property var bands: [
        { key: "low", color: Theme.low },
        { key: "mid", color: Theme.mid },
        { key: "high", color: Theme.high }
    ]
    renderStrategy: Canvas.Cooperative
    onTraceChanged: requestPaint()
    onWidthChanged: requestPaint()
    onHeightChanged: requestPaint()

    onPaint: {
        const ctx = getContext("2d");
        ctx.clearRect(0, 0, width, height);
        if (!trace)
            return;
        const capacity = 160;
        const step = width / (capacity - 1);
        ctx.lineWidth = 2;
        for (const band of bands) {
            const values = trace[band.key] || [];
            if (values.length < 2)
                continue;
            ctx.strokeStyle = band.color;
            ctx.beginPath();
            // Newest at the right edge.
            const start = capacity - values.length;
            for (let i = 0; i < values.length; ++i) {
                const v = Math.max(0, Math.min(1, values[i]));
                const x = (start + i) * step;
                const y = height - v * height;
                if (i === 0)
                    ctx.moveTo(x, y);
                else
                    ctx.lineTo(x, y);
            }
            ctx.stroke();
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// What goes out, one row of 512 cells per routed universe. Repaints are coalesced to the next
// frame, so a 60 Hz model never paints faster than the display.
Tile {
    id: tile
    objectName: "dmxPreviewTile"
    title: "DMX output"

    Canvas {
        id: canvas
        objectName: "dmxPreview"
        anchors.fill: parent
        renderStrategy: Canvas.Immediate

        Connections {
            target: Bridge
            function onDmxPreviewChanged() { canvas.requestPaint(); }
        }
        onWidthChanged: requestPaint()
        onHeightChanged: requestPaint()

        onPaint: {
            const ctx = getContext("2d");
            ctx.fillStyle = Theme.window;
            ctx.fillRect(0, 0, width, height);
            const frame = Bridge.dmxPreview;
            const universes = Object.keys(frame).sort((a, b) => a - b);
            if (universes.length === 0)
                return;
            const labelWidth = 40;
            const columns = 64;
            const rowsPerUniverse = 512 / columns;
            const cellW = (width - labelWidth) / columns;
            const bandH = height / universes.length;
            const cellH = Math.max(1, (bandH - 4) / rowsPerUniverse);
            ctx.font = "12px sans-serif";
            for (let u = 0; u < universes.length; ++u) {
                const bytes = new Uint8Array(frame[universes[u]]);
                const top = u * bandH;
                ctx.fillStyle = Theme.textDim;
                ctx.fillText(universes[u], 4, top + 14);
                for (let c = 0; c < bytes.length && c < 512; ++c) {
                    const v = bytes[c];
                    if (v === 0)
                        continue;
                    ctx.fillStyle = Qt.rgba(0.3, 0.64, 1.0, 0.15 + 0.85 * v / 255);
                    ctx.fillRect(labelWidth + (c % columns) * cellW,
                                 top + Math.floor(c / columns) * cellH, cellW - 1, cellH - 1);
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// What goes out, one band of 512 cells per routed universe.
Tile {
    objectName: "dmxPreviewTile"
    title: "DMX output"

    DmxPreviewItem {
        objectName: "dmxPreview"
        anchors.fill: parent
        frame: Bridge.dmxPreview
        cellColor: Theme.accent
        labelColor: Theme.textDim
    }
}

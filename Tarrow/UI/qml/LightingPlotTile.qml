import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Every lamp where it hangs, in the colour and brightness the engine gives it now.
Tile {
    id: tile
    objectName: "lightingPlotTile"
    title: "Lighting plot"

    Rectangle {
        id: stage
        anchors.fill: parent
        color: "#07090b"
        radius: 6
        readonly property real lampSize: Math.max(10, Math.min(width, height) / 18)
        readonly property var plot: Bridge.lightingPlot

        Repeater {
            objectName: "plotLamps"
            // By count: the lamps stay while the show's fixtures do, only their colours change.
            model: stage.plot.length
            Rectangle {
                required property int index
                readonly property var modelData: stage.plot[index]
                readonly property real level: modelData.dimmer
                x: stage.lampSize / 2 + modelData.x * (stage.width - 2 * stage.lampSize)
                y: stage.lampSize / 2 + modelData.y * (stage.height - 2 * stage.lampSize)
                width: stage.lampSize
                height: stage.lampSize
                radius: width / 2
                color: Qt.rgba(modelData.red * level, modelData.green * level, modelData.blue * level, 1)
                border.color: modelData.strobe > 0 ? Theme.beat : Theme.tileBorder
                border.width: modelData.strobe > 0 ? 2 : 1
            }
        }
        Label {
            anchors.centerIn: parent
            visible: stage.plot.length === 0
            text: "No fixtures in the current show"
            color: Theme.textDim
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Tile {
    id: tile
    objectName: "tempoTile"
    title: "Tempo"

    readonly property var beat: Bridge.beatReadout
    // Whole percent: the bar and its text repaint when the figure shown changes, not every tick.
    readonly property real confidence: Math.round((beat ? beat.confidence : 0) * 100) / 100
    readonly property real beatCount: beat ? beat.beatCount : 0
    onBeatCountChanged: flash.restart()

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        RowLayout {
            spacing: Theme.spacing
            Label {
                objectName: "bpm"
                text: tile.beat && tile.beat.bpm > 0 ? Math.round(tile.beat.bpm) : "—"
                color: Theme.text
                font.pixelSize: Theme.fontHuge
                font.weight: Font.Bold
            }
            Label {
                text: "BPM"
                color: Theme.textDim
                font.pixelSize: Theme.fontTitle
                Layout.alignment: Qt.AlignBottom
                Layout.bottomMargin: 10
            }
            Item { Layout.fillWidth: true }
            Rectangle {
                id: beatLight
                objectName: "beatFlash"
                width: 48; height: 48; radius: 24
                color: Theme.beat
                opacity: 0.1
                SequentialAnimation {
                    id: flash
                    PropertyAction { target: beatLight; property: "opacity"; value: 1.0 }
                    NumberAnimation {
                        target: beatLight; property: "opacity"; to: 0.1; duration: 180
                        easing.type: Easing.OutQuad
                    }
                }
            }
        }

        Label {
            text: "Confidence"
            color: Theme.textDim
            font.pixelSize: Theme.fontSmall
        }
        RowLayout {
            Layout.fillWidth: true
            ProgressBar {
                objectName: "confidence"
                Layout.fillWidth: true
                from: 0; to: 1
                value: tile.confidence
            }
            Label {
                objectName: "confidenceText"
                text: Math.round(tile.confidence * 100) + " %"
                color: Theme.text
                font.pixelSize: Theme.fontBody
            }
        }
        Item { Layout.fillHeight: true }
    }
}

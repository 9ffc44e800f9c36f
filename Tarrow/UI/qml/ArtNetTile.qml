import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Art-Net output: switch, target, and a diagnosis in plain words with its repair.
Tile {
    id: tile
    objectName: "artnetTile"
    title: "Art-Net"

    readonly property var health: Bridge.artnetHealth
    readonly property var nodes: Bridge.artnetDiscoveryState.nodes || []

    function healthColour(name) {
        switch (name) {
        case "streaming": return Theme.good;
        case "disabled":
        case "searching": return Theme.textDim;
        default: return Theme.warning;
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            Switch {
                objectName: "artnetSwitch"
                text: Texts.enableArtNet
                checked: Bridge.artnetEnabled
                onToggled: Bridge.artnetEnabled = checked
            }
            Item { Layout.fillWidth: true }
            Label {
                objectName: "artnetPacketsPerSecond"
                text: Bridge.artnetPacketsPerSecond + " packets/s"
                color: Theme.textDim
                font.pixelSize: Theme.fontBody
            }
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            Label {
                text: Texts.artnetHostLabel
                color: Theme.textDim
            }
            TextField {
                objectName: "artnetHost"
                Layout.fillWidth: true
                text: Bridge.artnetHost
                inputMethodHints: Qt.ImhNoPredictiveText
                onEditingFinished: {
                    if (text.trim() !== Bridge.artnetHost)
                        Bridge.artnetHost = text.trim()
                    // Shows what the output uses: a blank is not taken, and later changes (an
                    // automatic repair) still reach the field.
                    text = Qt.binding(() => Bridge.artnetHost)
                }
            }
        }
        CheckBox {
            objectName: "artnetAutoFix"
            text: Texts.artnetAutoFixLabel
            checked: Bridge.artnetAutoFix
            onToggled: Bridge.artnetAutoFix = checked
        }

        Rectangle {
            Layout.fillWidth: true
            Layout.preferredHeight: healthColumn.implicitHeight + 2 * Theme.spacing
            radius: Theme.radius
            color: Theme.window
            border.color: tile.healthColour(tile.health["case"])
            ColumnLayout {
                id: healthColumn
                anchors { fill: parent; margins: Theme.spacing }
                spacing: 6
                Label {
                    objectName: "artnetHealthHeadline"
                    Layout.fillWidth: true
                    text: tile.health.headline || ""
                    color: tile.healthColour(tile.health["case"])
                    font.pixelSize: Theme.fontTitle
                    font.weight: Font.DemiBold
                    wrapMode: Text.Wrap
                }
                Label {
                    objectName: "artnetHealthDetail"
                    Layout.fillWidth: true
                    text: tile.health.detail || ""
                    color: Theme.text
                    wrapMode: Text.Wrap
                }
                RowLayout {
                    spacing: Theme.spacing
                    visible: !!tile.health.fix || !!Bridge.artnetLastAutoFix
                    ChoiceButton {
                        objectName: "artnetFixButton"
                        visible: !!tile.health.fix
                        text: tile.health.fix || ""
                        chosen: true
                        onClicked: Bridge.applyArtNetFix()
                    }
                    Label {
                        objectName: "artnetLastAutoFix"
                        visible: !!Bridge.artnetLastAutoFix
                        text: Bridge.artnetLastAutoFix || ""
                        color: Theme.textDim
                        font.pixelSize: Theme.fontSmall
                    }
                }
            }
        }

        Label {
            text: "Nodes"
            color: Theme.textDim
            font.weight: Font.DemiBold
        }
        ListView {
            objectName: "artnetNodes"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: tile.nodes
            spacing: 4
            delegate: Label {
                required property var modelData
                width: ListView.view.width
                text: modelData.ip + "  " + (modelData.shortName || modelData.longName || "")
                      + (modelData.outputUniverses.length > 0
                         ? "  · universes " + modelData.outputUniverses.join(", ") : "")
                color: Theme.text
                elide: Text.ElideRight
            }
            Label {
                anchors.fill: parent
                visible: tile.nodes.length === 0
                text: Bridge.artnetDiscoveryState.failureReason || Texts.noArtNetNodes
                color: Theme.textDim
                wrapMode: Text.Wrap
            }
        }
    }
}

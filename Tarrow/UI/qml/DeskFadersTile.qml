import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Live switch, universe, 24 channel faders, grand master and blackout.
Tile {
    id: tile
    objectName: "deskFadersTile"
    title: "Desk"

    readonly property int channelCount: 24

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            Switch {
                objectName: "deskLive"
                text: "Live"
                font.pixelSize: Theme.fontTitle
                checked: Bridge.deskLive
                onToggled: Bridge.deskLive = checked
            }
            Label { text: "Universe"; color: Theme.textDim }
            SpinBox {
                objectName: "deskUniverse"
                from: 1
                to: 32768
                editable: true
                value: Bridge.deskUniverse
                onValueModified: Bridge.deskUniverse = value
            }
            Item { Layout.fillWidth: true }
            ChoiceButton {
                objectName: "deskBlackout"
                text: "Blackout"
                chosen: Bridge.deskBlackout
                onClicked: Bridge.deskBlackout = !Bridge.deskBlackout
            }
        }
        Label {
            objectName: "deskRouteLine"
            Layout.fillWidth: true
            text: Bridge.deskRouteLine
            color: Bridge.deskLive ? Theme.good : Theme.textDim
            elide: Text.ElideRight
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 2
            Repeater {
                model: tile.channelCount
                ColumnLayout {
                    id: strip
                    required property int index
                    readonly property real level: Bridge.deskLevels[index] ?? 0
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    spacing: 2
                    Label {
                        Layout.alignment: Qt.AlignHCenter
                        text: Math.round(strip.level * 255)
                        color: Theme.textDim
                        font.pixelSize: 11
                    }
                    Slider {
                        objectName: "deskFader" + (strip.index + 1)
                        Layout.fillHeight: true
                        Layout.alignment: Qt.AlignHCenter
                        orientation: Qt.Vertical
                        from: 0
                        to: 1
                        value: strip.level
                        onMoved: Bridge.setDeskLevel(strip.index, value)
                    }
                    Label {
                        Layout.alignment: Qt.AlignHCenter
                        text: strip.index + 1
                        color: Theme.text
                        font.pixelSize: Theme.fontSmall
                    }
                }
            }
            Rectangle { Layout.fillHeight: true; width: 1; color: Theme.tileBorder }
            ColumnLayout {
                Layout.fillHeight: true
                spacing: 2
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: Math.round(Bridge.deskGrandMaster * 100) + "%"
                    color: Theme.textDim
                    font.pixelSize: 11
                }
                Slider {
                    objectName: "deskGrandMaster"
                    Layout.fillHeight: true
                    Layout.alignment: Qt.AlignHCenter
                    orientation: Qt.Vertical
                    from: 0
                    to: 1
                    value: Bridge.deskGrandMaster
                    onMoved: Bridge.deskGrandMaster = value
                }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: "GM"
                    color: Theme.text
                    font.pixelSize: Theme.fontSmall
                    font.weight: Font.DemiBold
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// "View current interpretation": which interpreters animate which fixtures in the current mode.
// The model refreshes the tree only while this screen is shown.
Rectangle {
    id: screen
    objectName: "interpretationScreen"
    color: Theme.window

    // Older models lack the interpretation; the screen then shows only its title.
    readonly property bool supported: "interpretationScreenVisible" in Bridge
    readonly property var tree: supported ? Bridge.interpretation : null

    Component.onCompleted: if (supported) Bridge.interpretationScreenVisible = true
    Component.onDestruction: if (supported) Bridge.interpretationScreenVisible = false

    Tile {
        objectName: "interpretationTile"
        anchors.fill: parent
        anchors.margins: Theme.padding
        title: Texts.viewCurrentInterpretation + (screen.tree ? " · " + screen.tree.modeId : "")

        ColumnLayout {
            anchors.fill: parent
            spacing: Theme.spacing

            RowLayout {
                Layout.fillWidth: true
                visible: "shiftLightingInterpretation" in Bridge
                Item { Layout.fillWidth: true }
                ChoiceButton {
                    objectName: "shiftInterpretation"
                    text: "Shift interpretation"
                    enabled: !Bridge.isShiftingInterpretation
                    onClicked: Bridge.shiftLightingInterpretation()
                }
            }
            ListView {
                objectName: "interpretationGroups"
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                spacing: Theme.spacing
                model: screen.tree ? screen.tree.groups : []
                delegate: Column {
                    id: group
                    required property var modelData
                    width: ListView.view.width
                    spacing: 4
                    Label {
                        text: group.modelData.label
                        color: Theme.textDim
                        font.pixelSize: Theme.fontTitle
                        font.weight: Font.DemiBold
                    }
                    Repeater {
                        model: group.modelData.rows
                        RowLayout {
                            required property var modelData
                            width: group.width
                            spacing: Theme.spacing
                            Label {
                                Layout.preferredWidth: group.width * 0.35
                                text: modelData.fixtureLabel
                                color: Theme.text
                                elide: Text.ElideRight
                            }
                            Flow {
                                Layout.fillWidth: true
                                spacing: 6
                                Repeater {
                                    model: modelData.parts
                                    Rectangle {
                                        required property var modelData
                                        radius: 4
                                        color: Theme.tileBorder
                                        width: partLabel.implicitWidth + 12
                                        height: partLabel.implicitHeight + 6
                                        Label {
                                            id: partLabel
                                            anchors.centerIn: parent
                                            text: parent.modelData.label
                                            color: Theme.text
                                            font.pixelSize: Theme.fontSmall
                                        }
                                    }
                                }
                            }
                        }
                    }
                }
            }
            Label {
                Layout.fillWidth: true
                Layout.fillHeight: true
                visible: !screen.tree
                text: "Waiting for the engine’s interpretation…"
                color: Theme.textDim
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Where each virtual universe goes. Every edit is saved at once by the model.
Tile {
    id: tile
    objectName: "routeEditorTile"
    title: "Universe routes"

    readonly property var destinations: ["artnet", "enttec", "unmapped"]
    readonly property var destinationNames: ["Art-Net", "Enttec", "Unmapped"]
    function nextVirtualUniverse() {
        let highest = 0;
        for (const route of Bridge.routes)
            highest = Math.max(highest, route.virtualUniverse);
        return highest + 1;
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        ListView {
            objectName: "routeList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 6
            model: Bridge.routes
            delegate: RowLayout {
                id: row
                required property var modelData
                required property int index
                objectName: "route" + modelData.virtualUniverse
                width: ListView.view.width
                spacing: 6
                Label {
                    text: row.modelData.virtualUniverse + " →"
                    color: Theme.text
                    font.weight: Font.DemiBold
                    Layout.preferredWidth: 44
                }
                ComboBox {
                    objectName: "routeDestination" + row.modelData.virtualUniverse
                    Layout.fillWidth: true
                    model: tile.destinationNames
                    currentIndex: tile.destinations.indexOf(row.modelData.destination)
                    onActivated: index => Bridge.setRoute(row.modelData.virtualUniverse,
                                                 tile.destinations[index],
                                                 row.modelData.artnetUniverse ?? 0)
                }
                SpinBox {
                    objectName: "routeArtNetUniverse" + row.modelData.virtualUniverse
                    visible: row.modelData.destination === "artnet"
                    from: 0
                    to: 32767
                    editable: true
                    value: row.modelData.artnetUniverse ?? 0
                    Layout.preferredWidth: 120
                    onValueModified: Bridge.setRoute(row.modelData.virtualUniverse, "artnet", value)
                }
                ToolButton {
                    objectName: "routeRemove" + row.modelData.virtualUniverse
                    text: "✕"
                    onClicked: Bridge.removeRoute(row.modelData.virtualUniverse)
                }
            }
        }
        ChoiceButton {
            objectName: "routeAdd"
            text: "Add universe " + tile.nextVirtualUniverse()
            onClicked: Bridge.setRoute(tile.nextVirtualUniverse(), "unmapped", 0)
        }
    }
}

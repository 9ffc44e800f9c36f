import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// The show's patch: the floor with its group markers, then every fixture by group with its
// universe and addresses; colliding address ranges are marked.
Tile {
    id: tile
    objectName: "patchTile"
    title: patch ? "Patch · " + patch.showName : "Patch"

    readonly property var patch: Bridge.showPatch
    readonly property var blueprint: patch ? patch.blueprint : null

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        Rectangle {
            id: floor
            objectName: "patchBlueprint"
            Layout.fillWidth: true
            Layout.preferredHeight: parent.height * 0.4
            visible: !!tile.blueprint
            color: "#07090b"
            border.color: Theme.tileBorder
            radius: 6
            Repeater {
                model: tile.blueprint ? tile.blueprint.markers : []
                Item {
                    required property var modelData
                    readonly property var bp: tile.blueprint
                    x: (modelData.x - bp.floorX) / bp.floorWidth * (floor.width - 24) + 12
                    y: (modelData.y - bp.floorY) / bp.floorDepth * (floor.height - 24) + 12
                    Rectangle {
                        x: -6; y: -6; width: 12; height: 12; radius: 6
                        color: Theme.accent
                    }
                    Label {
                        x: 10; y: -9
                        text: modelData.groupName || ""
                        color: Theme.text
                        font.pixelSize: Theme.fontSmall
                    }
                }
            }
        }
        Label {
            objectName: "patchSummary"
            Layout.fillWidth: true
            visible: !!tile.patch
            readonly property int overlaps: tile.patch
                ? tile.patch.groups.reduce((n, g) => n + g.fixtures.filter(f => f.overlaps).length, 0) : 0
            readonly property int fixtures: tile.patch
                ? tile.patch.groups.reduce((n, g) => n + g.fixtures.length, 0) : 0
            text: fixtures + (fixtures === 1 ? " fixture" : " fixtures")
                  + (overlaps > 0 ? " · " + overlaps + " overlapping" : "")
            color: overlaps > 0 ? Theme.warning : Theme.textDim
        }
        ListView {
            objectName: "patchList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: tile.patch ? tile.patch.groups : []
            spacing: Theme.spacing
            delegate: Column {
                id: group
                required property var modelData
                width: ListView.view.width
                spacing: 4
                Label {
                    text: group.modelData.name || "Ungrouped"
                    color: Theme.textDim
                    font.weight: Font.DemiBold
                }
                Repeater {
                    model: group.modelData.fixtures
                    Column {
                        id: fixture
                        required property var modelData
                        objectName: "patchFixture_" + modelData.id
                        width: group.width
                        opacity: modelData.isDisabled ? 0.5 : 1
                      RowLayout {
                        width: parent.width
                        spacing: Theme.spacing
                        Label {
                            Layout.fillWidth: true
                            text: fixture.modelData.name + "  ·  " + fixture.modelData.fixtureType
                            color: Theme.text
                            elide: Text.ElideRight
                        }
                        Label {
                            text: "U" + fixture.modelData.universe + "  " + fixture.modelData.address + "–"
                                  + (fixture.modelData.address + fixture.modelData.width - 1)
                            color: fixture.modelData.overlaps ? Theme.warning : Theme.text
                            font.family: "monospace"
                        }
                      }
                        Label {
                            objectName: "patchOverlapMark"
                            visible: fixture.modelData.overlaps
                            text: "⚠ " + Texts.patchOverlap
                            color: Theme.warning
                            font.pixelSize: Theme.fontSmall
                        }
                    }
                }
            }
        }
        Label {
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: !tile.patch
            text: "No show patch yet"
            color: Theme.textDim
        }
    }
}

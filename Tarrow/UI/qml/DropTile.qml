import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Tile {
    id: tile
    objectName: "dropTile"
    title: "Drop"

    readonly property var diagnostics: Bridge.dropDiagnostics

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        Rectangle {
            id: holdTile
            objectName: "holdToForceDrop"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 90
            radius: Theme.radius
            color: Bridge.isDropHeld ? Theme.drop : Theme.tileBorder
            Accessible.role: Accessible.Button
            Accessible.name: Texts.holdToForceDrop
            Accessible.description: Texts.holdToForceDropHelp

            Label {
                anchors.centerIn: parent
                text: Texts.holdToForceDrop
                color: Theme.text
                font.pixelSize: Theme.fontLarge
                font.weight: Font.Bold
            }
            // Press begins the pointer's hold, release (or a cancelled press) ends it.
            MouseArea {
                id: holdArea
                objectName: "holdArea"
                anchors.fill: parent
                hoverEnabled: true
                onPressed: Bridge.holdDropFromPointer(true)
                onReleased: Bridge.holdDropFromPointer(false)
                onCanceled: Bridge.holdDropFromPointer(false)
                // A screen switched away while pressed (another finger on the sidebar) gives no
                // release: the hold would last for good.
                Component.onDestruction: if (pressed) Bridge.holdDropFromPointer(false)
            }
            ToolTip.visible: holdArea.containsMouse && !holdArea.pressed
            ToolTip.delay: 600
            ToolTip.text: Texts.holdToForceDropHelp
        }

        RowLayout {
            Layout.fillWidth: true
            Label {
                objectName: "dropStatus"
                Layout.fillWidth: true
                text: Bridge.isDropHeld ? "Held" : (tile.diagnostics.status || "")
                color: Bridge.isDropHeld || tile.diagnostics.status === "drop" ? Theme.drop
                     : tile.diagnostics.status === "armed" ? Theme.warning : Theme.textDim
                font.pixelSize: Theme.fontTitle
                font.capitalization: Font.Capitalize
            }
            Label {
                text: "G H I J"
                color: Theme.textDim
                font.pixelSize: Theme.fontSmall
            }
            Button {
                objectName: "openDropDiagnostics"
                text: "Diagnostics"
                onClicked: Bridge.showingDropDiagnostics = true
                ToolTip.visible: hovered
                ToolTip.text: Texts.openDropDiagnosticsHelp
                Accessible.description: Texts.openDropDiagnosticsHelp
            }
        }
    }
}

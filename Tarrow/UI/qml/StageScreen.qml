import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// The stage as the engine lights it, and the show's patch over its floor plan.
Rectangle {
    objectName: "stageScreen"
    color: Theme.window

    RowLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        spacing: Theme.spacing

        LightingPlotTile {
            Layout.preferredWidth: 1
        }
        PatchTile {
            Layout.preferredWidth: 1
        }
    }
}

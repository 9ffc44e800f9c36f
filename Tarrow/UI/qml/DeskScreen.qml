import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// The manual desk: 24 faders over the first channels of one universe, where the routes send each
// universe, and what actually goes out.
Rectangle {
    objectName: "deskScreen"
    color: Theme.window

    GridLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        columns: 3
        rowSpacing: Theme.spacing
        columnSpacing: Theme.spacing

        DeskFadersTile {
            Layout.columnSpan: 2
            Layout.preferredWidth: 2
            Layout.preferredHeight: 3
        }
        RouteEditorTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 3
        }
        DmxPreviewTile {
            Layout.columnSpan: 3
            Layout.preferredWidth: 3
            Layout.preferredHeight: 2
        }
    }
}

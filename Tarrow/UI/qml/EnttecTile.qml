import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// The Enttec USB DMX Pro widget: one switch and what it does.
Tile {
    objectName: "enttecTile"
    title: "Enttec USB DMX Pro"

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing
        Switch {
            objectName: "enttecSwitch"
            text: Texts.enableEnttec
            checked: Bridge.enttecEnabled
            onToggled: Bridge.enttecEnabled = checked
        }
        Label {
            objectName: "enttecDescription"
            Layout.fillWidth: true
            text: Bridge.enttecEnabled ? Texts.enttecOnDescription : Texts.enttecOffDescription
            color: Theme.textDim
            wrapMode: Text.Wrap
        }
        Item { Layout.fillHeight: true }
    }
}

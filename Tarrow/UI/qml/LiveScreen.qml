import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Rectangle {
    objectName: "liveScreen"
    color: Theme.window
    Label {
        anchors.centerIn: parent
        text: Bridge.statusMessage
        color: Theme.text
    }
}

import QtQuick
import QtQuick.Controls

// A large pick button whose chosen state reads from across the room.
Button {
    id: control
    property bool chosen: false
    checkable: false
    implicitHeight: 44
    leftPadding: 16
    rightPadding: 16
    font.pixelSize: Theme.fontBody
    font.weight: chosen ? Font.Bold : Font.Normal
    background: Rectangle {
        radius: 6
        color: control.chosen ? Theme.accent : control.down ? Theme.tile : Theme.tileBorder
        border.color: control.visualFocus ? Theme.text : "transparent"
    }
    contentItem: Label {
        text: control.text
        font: control.font
        color: control.chosen ? Theme.window : Theme.text
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}

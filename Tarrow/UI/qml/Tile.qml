import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A dashboard tile: a titled card whose children fill the area below the title.
Rectangle {
    id: tile
    property string title
    default property alias content: body.data

    color: Theme.tile
    border.color: Theme.tileBorder
    radius: Theme.radius
    Layout.fillWidth: true
    Layout.fillHeight: true

    Label {
        id: heading
        objectName: tile.objectName + "Title"
        anchors { left: parent.left; top: parent.top; margins: Theme.padding }
        text: tile.title
        color: Theme.textDim
        font.pixelSize: Theme.fontTitle
        font.weight: Font.DemiBold
    }
    Item {
        id: body
        anchors {
            left: parent.left; right: parent.right; bottom: parent.bottom
            top: heading.bottom
            margins: Theme.padding
            topMargin: Theme.spacing
        }
    }
}

import QtQuick

// A row of colour chips; colours are {r, g, b} in 0…1.
Row {
    property var colors: []
    property int chip: 22
    spacing: 4
    Repeater {
        model: parent.colors
        Rectangle {
            required property var modelData
            width: chip; height: chip; radius: 4
            color: Qt.rgba(Math.max(0, Math.min(1, modelData.r)),
                           Math.max(0, Math.min(1, modelData.g)),
                           Math.max(0, Math.min(1, modelData.b)), 1)
            border.color: "#40ffffff"
        }
    }
}
